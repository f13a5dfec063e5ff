#include "xpc/LXPCServer.h"

#include <memory>

#include "xpc/internal/LXPCEventGate.h"
#include "xpc/internal/LXPCHandles.h"

namespace {

// The platform's range of process ids.
constexpr pid_t kFirstPeerPid = 1;
constexpr pid_t kLastPeerPid = 99999;

bool IsConnection(xpc_object_t pObject) {
    return pObject != nullptr && xpc_get_type(pObject) == XPC_TYPE_CONNECTION;
}

bool HasPeerPid(xpc_connection_t pConnection) {
    const pid_t pid = xpc_connection_get_pid(pConnection);
    return pid >= kFirstPeerPid && pid <= kLastPeerPid;
}

} // namespace

LXPCServerBase::LXPCServerBase(LXPCServerEventNotify* pSink) : LXPCServerBase(pSink, false) {}

LXPCServerBase::LXPCServerBase(LXPCServerEventNotify* pSink, bool bCheckPeers)
    : LXPCBase(pSink), pServerNotify(pSink), bPeerCheck(bCheckPeers) {
    pServer = this;
}

LXPCServerBase::~LXPCServerBase() {
    pServer = nullptr;
    _CloseEvents();
    while (LXPCConnection* pRecord = _DetachFirst())
        delete pRecord;
}

void LXPCServerBase::NewConnectionHandler(_xpc_connection_s* pConnection) {
    if (!IsConnection(pConnection))
        return;
    if (bPeerCheck && !HasPeerPid(pConnection)) {
        _LeaveTo(pServerNotify)->EvInvalidConnectionAttempt();
        return;
    }
    auto pRecord = std::make_unique<LXPCConnection>(LXPCHandle(pConnection));
    LXPCConnection& record = *pRecord;
    // Before its events can come: the first of them may already drop the record.
    record.Retain();
    {
        const std::lock_guard guard(mutexConnections);
        loConnections.AddHead(pRecord.release());
    }
    SetupConnectionHandlerAndResume(record);
}

void LXPCServerBase::Disconnect(long connection) {
    delete _DetachByHandle(connection);
}

LXPCConnection* LXPCServerBase::_DetachFirst() {
    const std::lock_guard guard(mutexConnections);
    return loConnections.Detach(loConnections.GetFirst());
}

LXPCConnection* LXPCServerBase::_DetachByHandle(long connection) {
    const std::lock_guard guard(mutexConnections);
    LListIterator<LXPCConnection> walk(loConnections);
    while (walk.Get() != nullptr && walk.Get()->GetHandle() != connection)
        walk.Next();
    return walk.Detach();
}

void LXPCServer::Start() {
    xpc_main(StaticNewConnectionHandler);
}

void LXPCServer::StaticNewConnectionHandler(_xpc_connection_s* pConnection) {
    if (LXPCServerBase* pCurrent = pServer)
        pCurrent->NewConnectionHandler(pConnection);
}

bool LXPCMachServer::Start(const char* szServiceName) {
    xpc_connection_t pListener = xpc_connection_create_mach_service(szServiceName, dispatch_get_main_queue(),
                                                                    XPC_CONNECTION_MACH_SERVICE_LISTENER);
    if (pListener == nullptr)
        return false;
    xpc_connection_set_event_handler(pListener, [this, pAlive = _GetGate()](xpc_object_t pEvent) {
        // The listener's own errors arrive here too.
        if (const LXPCEventScope scope(*pAlive); scope && IsConnection(pEvent))
            NewConnectionHandler(static_cast<xpc_connection_t>(pEvent));
    });
    xpc_connection_resume(pListener);
    dispatch_main();
}
