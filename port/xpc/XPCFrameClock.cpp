#include "xpc/XPCFrameClock.h"

#include "xpc/XPCLimits.h"

#include <algorithm>
#include <utility>

namespace port {
namespace {

constexpr std::chrono::milliseconds kRecheck{100}; // of a late frame whose rest may not have been read yet

} // namespace

XPCFrameClock::Call XPCFrameClock::read(std::optional<std::uint64_t> frame, bool socketIsEmpty, Time now) {
    // By number, for one frame may end and the next begin in one read: that one has a time of its own.
    if (timed_ != frame)
        timed_.reset();
    if (!frame || timed_ || !socketIsEmpty)
        return {};
    timed_ = frame;
    limit_ = Deadline(kFrameDeadline, now);
    // One call at a time is asked for, however many frames begin: it finds a younger one, and is put off.
    return std::exchange(callComes_, true) ? Call() : limit_.end();
}

XPCFrameClock::Call XPCFrameClock::expired(bool mayBeUnread, Time now, bool& late) {
    callComes_ = false;
    late = timed_ && !mayBeUnread && limit_.isPast(now);
    if (late || !timed_)
        return {};
    callComes_ = true;
    return std::max(now + kRecheck, limit_.end());
}

} // namespace port
