#include "xpc/LXPCServer.h"

#include <mutex>

#include "xpc/internal/LXPCServerState.h"

namespace {

// Held while `pServer` changes: what it shows is not destroyed while somebody looks.
constinit std::mutex mutexCurrent;

} // namespace

LXPCServerBase::LXPCServerBase(LXPCServerEventNotify* pSink) : LXPCServerBase(pSink, false) {}

LXPCServerBase::LXPCServerBase(LXPCServerEventNotify* pSink, bool bCheckPeers)
    : LXPCServerBase(port::Reference(new LXPCServerState(pSink, bCheckPeers))) {}

LXPCServerBase::LXPCServerBase(port::Reference<LXPCServerState> pShared)
    : LXPCBase(pShared), pServerState(std::move(pShared)) {
    const std::lock_guard guard(mutexCurrent);
    pServer = this;
}

LXPCServerBase::~LXPCServerBase() {
    {
        const std::lock_guard guard(mutexCurrent);
        pServer = nullptr;
    }
    // Without the mutex, for the wait may be long, and new peers look for the current server meanwhile.
    _CloseEvents();
    pServerState->Close();
}

void LXPCServerBase::NewConnectionHandler(_xpc_connection_s* pConnection) {
    const port::Reference<LXPCServerState> pKept = pServerState; // the event may destroy the server
    LXPCServerState::Accept(pKept, pConnection);
}

void LXPCServerBase::Disconnect(long connection) {
    pServerState->Drop(connection);
}

// A share of the state, not the server: that may be destroyed as soon as the mutex is free, and its gate then
// refuses the peer.
port::Reference<LXPCServerState> LXPCServerBase::_GetCurrentState() {
    const std::lock_guard guard(mutexCurrent);
    const LXPCServerBase* pCurrent = pServer;
    return pCurrent == nullptr ? port::Reference<LXPCServerState>() : pCurrent->pServerState;
}

void LXPCServer::Start() {
    xpc_main(StaticNewConnectionHandler);
}

void LXPCServer::StaticNewConnectionHandler(_xpc_connection_s* pConnection) {
    if (const port::Reference<LXPCServerState> pState = _GetCurrentState())
        LXPCServerState::Accept(pState, pConnection);
}

bool LXPCMachServer::Start(const char* szServiceName) {
    xpc_connection_t pListener = xpc_connection_create_mach_service(szServiceName, dispatch_get_main_queue(),
                                                                    XPC_CONNECTION_MACH_SERVICE_LISTENER);
    if (pListener == nullptr)
        return false;
    // On the main queue. The listener is never cancelled, so the handler may outlive the server: it has a share
    // of the state.
    xpc_connection_set_event_handler(pListener, [pState = _GetState()](xpc_object_t pEvent) {
        LXPCServerState::Accept(pState, static_cast<xpc_connection_t>(pEvent));
    });
    xpc_connection_resume(pListener);
    dispatch_main();
}
