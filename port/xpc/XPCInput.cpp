#include "xpc/XPCInput.h"

#include <new>
#include <utility>

namespace port {
namespace {

constexpr unsigned kReadsPerTurn = 4; // then other connections have their turn

} // namespace

// Under the connection's lock, on the thread that got the event. An edge is told once: while another thread
// reads it is left in `again_`, and that one looks once more before it stops. The end of the peer is behind the
// last bytes, so a read that finds fewer than it could take is not enough.
bool XPCInput::begin(bool hungUp, bool mayRead) {
    if (isReading() || hungUp)
        again_ = true;
    if (isReading())
        return false;
    if (!mayRead)
        hold();
    else
        phase_ = Phase::Reading;
    return mayRead;
}

// From here on it is not the peer who is slow.
void XPCInput::hold() {
    phase_ = Phase::Held;
    clock_.stop();
}

bool XPCInput::takeUp(bool mayRead) {
    if (!isHeld() || !mayRead)
        return false;
    phase_ = Phase::Reading;
    return true;
}

// Without the lock: the phase makes this thread the only one that touches the reader.
XPCReadResult XPCInput::read(int socket, XPCFrameSink& sink) {
    try {
        return reader_.readFrom(socket, XPCScratch::ofThisThread(), sink);
    } catch (const std::bad_alloc&) {
        return reader_.abandon(XPCReadResult::Refused);
    }
}

// Under the lock again. Only a socket found empty, with no event since, lets the phase go to Idle: the next
// event then begins anew.
XPCInput::Next XPCInput::end(XPCReadResult result, unsigned reads, bool mayRead, XPCFrameClock::Time now,
                             XPCFrameClock::Call& call) {
    const bool emptied = result != XPCReadResult::Read && !std::exchange(again_, false);
    call = clock_.read(reader_.unfinished(), emptied, now);
    if (emptied) {
        phase_ = Phase::Idle;
        return reader_.isInStream() ? Next::DoneForNow : Next::Done;
    }
    if (!mayRead) {
        hold();
        again_ = true; // the event that said so is spent
        return Next::Done;
    }
    return reads < kReadsPerTurn ? Next::ReadOn : Next::LaterTurn;
}

// In Reading and Held bytes of the frame may lie in the socket: then it is not the peer who is late.
bool XPCInput::expired(XPCFrameClock::Time now, XPCFrameClock::Call& call) {
    bool late = false;
    call = clock_.expired(phase_ != Phase::Idle, now, late);
    return late;
}

void XPCInput::stop() {
    phase_ = Phase::Idle;
    isLast_ = false;
    clock_.stop();
}

} // namespace port
