// Which messages and barriers of a connection wait for company, so that one call serves several.
//
// A barrier puts a turn of the connection's queue in line. Small messages that are sent until a worker comes for
// it are written by that turn, with one call. Large ones gain nothing by waiting; behind them the turn itself is
// put off, for up to some barriers, and then comes at once. A sender that waits for each message to be handed over
// would wait for nothing: where too few barriers came in time, again and again, the next turns come at once.
//
// Thread-safety: none; the connection's lock covers it.
#pragma once

#include "dispatch/Runnable.h"
#include "xpc/XPCFrame.h"

#include <cstddef>

namespace port {

class XPCGathering {
public:
    // `onWorkers`: the queue's turns come from the workers, so one that is in line comes at once. Elsewhere
    // nothing is put off.
    explicit XPCGathering(bool onWorkers) : onWorkers_(onWorkers) {}

    // A message is sent. True when it is to wait for the turn of the queue.
    bool isToWait(XPCFrameKind kind, std::size_t bodyBytes);
    // What waited was written.
    void written();
    // A barrier puts a turn in line: how soon.
    Urgency turnIsPutInLine();
    // A barrier joins a turn that is in line. True when the turn was put off and is now to come at once.
    bool barrierJoins();
    void turnBegins();

private:
    enum class Turn {
        None, // in line, or none that is of use here
        Now,  // small messages wait for it
        Soon, // barriers wait for it
    };

    const bool onWorkers_;
    Turn turn_ = Turn::None;
    std::size_t waiting_ = 0;  // messages, or barriers, for that turn
    bool lastIsLarge_ = false; // the message that was sent last
    unsigned misses_ = 0;      // turns in a row that were put off for too little, up to a bound
    unsigned toCome_ = 0;      // turns that are not put off
};

} // namespace port
