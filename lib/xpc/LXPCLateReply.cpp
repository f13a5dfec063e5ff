#include "xpc/LXPCLateReply.h"

#include <utility>

#include "xpc/internal/LXPCEndpointState.h"
#include "xpc/internal/LXPCHandles.h"

LXPCLateReply::LXPCLateReply(const LXPCBase& endpoint, long connection, long message)
    : nConnection(connection), nMessage(message) {
    if (!LXPCIsHandle(connection) || !LXPCIsHandle(message))
        return;
    pState = endpoint.pState;
    xpc_retain(LXPCObject(message));
    xpc_retain(LXPCObject(connection));
    // Inside of the event, so no other one of this connection begins until the reply is sent. The references
    // keep both while the endpoint may forget them.
    xpc_connection_suspend(LXPCConnectionObject(connection));
}

LXPCLateReply::LXPCLateReply(LXPCLateReply&& other) noexcept
    : pState(std::move(other.pState)), nConnection(other.nConnection), nMessage(other.nMessage) {}

LXPCLateReply::~LXPCLateReply() {
    if (pState)
        _GoOn();
}

void LXPCLateReply::Send(const LList<LXPCDataListable>& loItems) {
    if (!pState)
        return;
    LXPCSendReply(pState, nConnection, nMessage, loItems);
    _GoOn();
}

// The connection goes on before it is let go: a suspended one would never deliver its end.
void LXPCLateReply::_GoOn() {
    pState = {};
    xpc_connection_resume(LXPCConnectionObject(nConnection));
    xpc_release(LXPCObject(nMessage));
    xpc_release(LXPCObject(nConnection));
}
