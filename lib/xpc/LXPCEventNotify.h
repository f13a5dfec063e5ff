// The events that servers and clients report to the program that uses them.
//
// Thread-safety: an implementation is called from several threads. Events of one connection come one at a
// time, off the main thread; replies come on the main dispatch queue, so a program that never serves that
// queue gets none. No lock of the library is held during a call.
//
// Lifetime: called until the destructor of the endpoint has returned; `LXPCBase` tells what that allows to an
// implementation and to its destructor.
//
// An implementation throws nothing. Of what `new` throws nevertheless a message, or a new peer, costs its connection,
// which is closed; in any other event it ends the process with "out of memory" and status 71.
//
// Connections and messages are handles: the XPC object carried in a long. A connection handle of -1 or 0
// means none. Items and a message handle live for the duration of the call.
#pragma once

#include <cstdint>

#include "xpc/LXPCData.h"

#pragma GCC visibility push(default)

enum LXPCErrorType : std::int32_t {
    LXPCErrorTypeOther = 0,
    LXPCErrorTypeConnectionInvalid = 1,     // the service is not there, or the connection has ended for good
    LXPCErrorTypeConnectionInterrupted = 2, // the service went away; the next message tries to reach it again
    LXPCErrorTypeTerminationImminent = 3
};

// Implementations are destroyed through their own type.
class LXPCEventNotify {
public:
    // Once for each error of the connection and for each reply that will not come. The library neither
    // cancels nor removes the connection. 0 when the error belongs to none.
    virtual void EvConnectionError(long connection, LXPCErrorType type) = 0;
    // A message with at least one declared key; items in the order of declaration. To answer, call
    // `LXPCBase::SendReply` with both handles from inside this call, or make an `LXPCLateReply` of them.
    virtual void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) = 0;
    // A reply with at least one declared key, on the main dispatch queue.
    virtual void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) = 0;
    // Exactly once for each reply, and for each message that asked for none, when it has been handed over or
    // its connection is gone.
    virtual void EvMessageSent(long connection) = 0;

protected:
    ~LXPCEventNotify() = default;
};

class LXPCServerEventNotify : public LXPCEventNotify {
public:
    // A peer was refused. The server may be destroyed inside this call.
    virtual void EvInvalidConnectionAttempt() = 0;

protected:
    ~LXPCServerEventNotify() = default;
};

#pragma GCC visibility pop
