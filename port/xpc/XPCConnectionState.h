// The states of a connection and the ways between them.
//
//                  resumed                     the service is gone
//      Created ─────────────────▶ Open ─────────────────────────▶ Interrupted
//         │                      ▲  ▲                             │  │
//         │ the service has no   │  └─────────────────────────────┘  │ a message is sent,
//         │ room, or is started  │     a message is sent             │ and there is no room
//         ▼                      │                                   │
//      Connecting ───────────────┘                                   │
//         ▲   an attempt succeeds                                    │
//         └──────────────────────────────────────────────────────────┘
//
//      Each of these four ──▶ Over: cancelled, or the service cannot be reached, or the peer is gone.
//
// A peer's connection knows Created, Open and Over only.
//
// Thread-safety: none; the connection's lock covers it.
#pragma once

#include <cassert>

namespace port {

class XPCConnectionState {
public:
    enum Name {
        Created,     // never resumed: what is sent waits
        Connecting,  // an attempt will be made soon: what is sent waits
        Open,        // there is a socket
        Interrupted, // the service went away: the next message connects again
        Over,        // what is sent is dropped
    };

    operator Name() const { return now_; }
    // The only way to change it.
    void become(Name next) {
        assert(isLegal(now_, next));
        now_ = next;
    }

    static constexpr bool isLegal(Name from, Name to) {
        switch (from) {
        case Created:
        case Connecting:
        case Interrupted:
            return to == Connecting || to == Open || to == Over;
        case Open:
            return to == Interrupted || to == Over;
        case Over:
            break;
        }
        return false;
    }

private:
    Name now_ = Created;
};

} // namespace port
