#include "base/LSystemVersion.h"

#include <gtest/gtest.h>
#include <port/seams_coreservices.h>
#include <unistd.h>

namespace {

int answers() {
    return (IsOSMacLeopardOrLater() ? 1 : 0) + (IsOSMacSnowLeopardOrLater() ? 2 : 0) +
           (IsOSMacLionOrLater() ? 4 : 0);
}

// Ends with the answers of a process that learns of another version after it has answered.
void answerTwice(const char* version, const char* later) {
    port_set_system_version(version);
    const int first = answers();
    port_set_system_version(later);
    _exit(first == answers() ? first : 100);
}

// The first answers stay while a process runs, so each version gets one of its own.
TEST(SystemVersionDeathTest, EachVersion) {
    const std::pair<const char*, int> rows[] = {{"10.4", 0},    {"10.5", 1},   {"10.6", 3},  {"10.7", 7},
                                                {"11.0", 7},    {"9.9", 0},    {"255.0", 7}, {"256.9", 0},
                                                {"266.262", 3}, {"10.256", 0}, {"fail", 0}};
    for (const auto& [version, expected] : rows) {
        EXPECT_EXIT(answerTwice(version, expected == 7 ? "10.4" : "10.7"), testing::ExitedWithCode(expected),
                    "")
            << version;
    }
}

} // namespace
