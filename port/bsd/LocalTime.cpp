#include <port/time.h>

#include <atomic>
#include <cstdlib>

namespace {

constexpr std::time_t kNever = -1;

// When the C library last looked at the machine's zone file for us, in seconds of a clock that only goes on.
constinit std::atomic<std::time_t> looked{kNever};

std::time_t coarseSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

// Reading a TZ that is the same is cheap; without one each reading would ask the file system.
void readZone() {
    const bool isNamed = std::getenv("TZ") != nullptr;
    const std::time_t now = isNamed ? kNever : coarseSeconds();
    if (isNamed || looked.load(std::memory_order_relaxed) != now)
        tzset();
    looked.store(now, std::memory_order_relaxed);
}

} // namespace

tm* port_localtime_r(const std::time_t* time, tm* result) {
    readZone();
    return localtime_r(time, result);
}

// The C library's own reads the zone each time, and it may be one that TZ names only now.
std::time_t port_mktime(tm* fields) {
    looked.store(kNever, std::memory_order_relaxed);
    return std::mktime(fields);
}
