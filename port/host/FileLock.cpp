#include "host/FileLock.h"

#include <algorithm>
#include <cerrno>
#include <sys/file.h>
#include <thread>

#include "host/Deadline.h"

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kFirstPause = 1ms;
constexpr std::chrono::milliseconds kLongestPause = 20ms;

} // namespace

bool lockFile(int fd, std::chrono::milliseconds patience) {
    const Deadline deadline(patience);
    auto pause = kFirstPause;
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || deadline.isPast())
            return false;
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, kLongestPause);
    }
    return true;
}

} // namespace port
