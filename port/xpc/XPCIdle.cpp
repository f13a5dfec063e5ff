#include <cstdint>
#include <port/UniqueFd.h>
#include <port/idle.h>
#include <sys/timerfd.h>

#include "dispatch/MainLoop.h"
#include "host/SystemCalls.h"
#include "xpc/XPCPeers.h"

namespace {

// No peer since the last look, and none now. New peers come on this thread too: one that waits to be accepted
// is not lost, its service manager starts the service again.
bool nobodyCame() {
    static std::size_t before = 0;
    const std::size_t ever = port::XPCPeers::shared().ever();
    const bool came = std::exchange(before, ever) != ever;
    return !came && port::XPCPeers::shared().count() == 0;
}

} // namespace

bool port_when_idle(unsigned seconds, void (*isIdle)()) {
    port::UniqueFd timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    const itimerspec period{{seconds, 0}, {seconds, 0}};
    const auto look = [isIdle, fd = timer.get()] {
        std::uint64_t count = 0;
        if (port::sys::read(fd, &count, sizeof count) == sizeof count && nobodyCame())
            isIdle();
    };
    if (!timer || ::timerfd_settime(timer.get(), 0, &period, nullptr) != 0 ||
        !port::MainLoop::shared().addSource(timer.get(), look))
        return false;
    static_cast<void>(timer.release()); // the loop reads it for the life of the process
    return true;
}
