// The reading side of a connection: who reads now, what has come of the frame on its way, and how long that may
// take.
//
//      Idle ──an event──▶ Reading ──socket empty──▶ Idle
//        │                 │   ▲
//        │ an event        │   │ the queue ran empty, or was resumed, or another event
//        └──▶ Held ◀───────┘   │
//              └───────────────┘      Held: the queue is suspended or full, or the peer does not read; the
//                                             bytes stay in the socket.
//
// Reading belongs to one thread at a time, without a lock. It ends when `end` says so: then nobody reads, or the
// next turn of reading is in line (still Reading), or reading is held.
//
// Thread-safety: the connection's lock covers all but `read`, which the reading thread calls.
#pragma once

#include "xpc/XPCFrameClock.h"
#include "xpc/XPCFrameReader.h"

namespace port {

class XPCInput {
public:
    // How the reading thread goes on.
    enum class Next {
        ReadOn,
        LaterTurn, // other connections have theirs first
        Done,
        DoneForNow, // as Done, and the next part of a stream is near
    };

    bool isReading() const { return phase_ == Phase::Reading; }
    bool isHeld() const { return phase_ == Phase::Held; }
    // The peer has hung up: what is in the socket is all that comes.
    bool isLast() const { return isLast_; }
    void setLast() { isLast_ = true; }

    // An event came. True when the calling thread is now the one that reads; `hungUp`: to the very end.
    bool begin(bool hungUp, bool mayRead);
    // Takes up reading where it was held. True: the caller puts a turn of reading in line.
    bool takeUp(bool mayRead);

    // One read of the socket.
    XPCReadResult read(int socket, XPCFrameSink& sink);
    // What came of it, after `reads` of this turn. `call` is when `expired` wants to be called.
    Next end(XPCReadResult result, unsigned reads, bool mayRead, XPCFrameClock::Time now,
             XPCFrameClock::Call& call);
    // True when the peer keeps us waiting for too long; else as above.
    bool expired(XPCFrameClock::Time now, XPCFrameClock::Call& call);
    // The socket is gone, or another: nobody reads, and no frame is on its way.
    void stop();

private:
    enum class Phase { Idle, Reading, Held };
    void hold();

    XPCFrameReader reader_;
    XPCFrameClock clock_;
    Phase phase_ = Phase::Idle;
    bool isLast_ = false;
    bool again_ = false; // an event came while somebody read: a socket found empty is looked at once more
};

} // namespace port
