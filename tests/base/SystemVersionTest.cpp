#include "base/LSystemVersion.h"

#include <gtest/gtest.h>
#include <port/internal/seams_coreservices.h>
#include <unistd.h>

namespace {

int answers() {
    return (IsOSMacLeopardOrLater() ? 1 : 0) + (IsOSMacSnowLeopardOrLater() ? 2 : 0) +
           (IsOSMacLionOrLater() ? 4 : 0);
}

// Ends with the answers of a process that learns of another version after it has answered.
void answerTwice(const char* version) {
    port_set_system_version(version);
    const int first = answers();
    port_set_system_version(first == 7 ? "10.4" : "10.7");
    _exit(first == answers() ? first : 100);
}

// The first answers stay while a process runs, so each version gets one of its own.
TEST(SystemVersionDeathTest, EachVersion) {
    const std::pair<const char*, int> rows[] = {
        {nullptr, 7},   {"10.4", 0}, {"10.5", 1}, {"10.6", 3}, {"10.7", 7}, {"11.0", 7}, {"9.9", 0},
        {"266.262", 3}, {"fail", 0}, {"", 0},     {"11", 0},   {"11.", 0},  {"-1.2", 0}, {"11.6.8", 0}};
    for (const auto& [version, expected] : rows)
        EXPECT_EXIT(answerTwice(version), testing::ExitedWithCode(expected), "") << version;
}

} // namespace
