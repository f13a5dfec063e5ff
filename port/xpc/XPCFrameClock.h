// A frame that has begun must be complete within its time, however slowly its bytes drip. The time runs from when
// the socket was first found empty inside of the frame: before, it was not the peer who was slow.
//
// Thread-safety: none; the connection's lock covers it.
#pragma once

#include "host/Deadline.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace port {

class XPCFrameClock {
public:
    using Time = Deadline::Time;
    // When to call `expired`; none: not at all, or a call comes already.
    using Call = std::optional<Time>;

    // Bytes were read. `frame` counts the frames: the one that has begun, if any.
    Call read(std::optional<std::uint64_t> frame, bool socketIsEmpty, Time now);
    // The call that was asked for. `late` tells whether the connection is to be ended; not while bytes of the
    // frame may have come that nobody has read yet.
    Call expired(bool mayBeUnread, Time now, bool& late);
    // No frame is timed any more.
    void stop() { timed_.reset(); }

private:
    std::optional<std::uint64_t> timed_;                // the frame that keeps us waiting
    Deadline limit_{std::chrono::milliseconds::zero()}; // its own
    bool callComes_ = false;
};

} // namespace port
