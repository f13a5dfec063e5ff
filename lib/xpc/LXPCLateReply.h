// The reply to a message that is given after the message's event has returned, from any thread: for an answer that
// waits for something, such as the disk.
//
// Thread-safety: a plain value; one thread at a time.
#pragma once

#include <port/Reference.h>

#include "xpc/LXPCBase.h"

#pragma GCC visibility push(default)

class LXPCLateReply {
public:
    // Inside `EvMessageReceived`, with the endpoint of the event and its two handles. From here on the connection
    // delivers no further event, so that its replies keep their order; nothing else waits. With a handle of -1 or 0
    // there is nothing to reply to.
    LXPCLateReply(const LXPCBase& endpoint, long connection, long message);
    LXPCLateReply(LXPCLateReply&& other) noexcept;
    LXPCLateReply& operator=(LXPCLateReply&&) = delete;
    // Without `Send` the message stays unanswered, and the connection goes on.
    ~LXPCLateReply();

    // As `LXPCBase::SendReply`, once; then the connection goes on. The endpoint and its sink may be gone: nothing is
    // sent then, and nobody called.
    void Send(const LList<LXPCDataListable>& loItems);

private:
    void _GoOn();

    port::Reference<LXPCEndpointState> pState; // null: done
    long nConnection;                          // a reference each
    long nMessage;
};

#pragma GCC visibility pop
