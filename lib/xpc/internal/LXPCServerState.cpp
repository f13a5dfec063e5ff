#include "xpc/internal/LXPCServerState.h"

#include <port/xpc_descriptors.h>

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

bool TakesDescriptors(const LList<LXPCDictionaryKeyListable>& loKeys) {
    const LXPCDictionaryKeyListable* pKey = loKeys.GetFirst();
    while (pKey != nullptr && pKey->eType != LXPCDataTypeFD)
        pKey = pKey->pNext;
    return pKey != nullptr;
}

} // namespace

// On the main queue, or on the thread of whoever hands a peer over. The scope lasts to the end, so that Close
// finds the record in the list, or `_Add` finds it closed.
void LXPCServerState::Accept(const port::Reference<LXPCServerState>& pState, _xpc_connection_s* pConnection) {
    // The listener's own errors arrive here too.
    const LXPCEventScope scope(pState->gate);
    if (!scope || !IsConnection(pConnection))
        return;
    if (pState->bPeerCheck && !HasPeerPid(pConnection)) {
        pState->pServerNotify->EvInvalidConnectionAttempt();
        return;
    }
    auto pRecord = std::make_unique<LXPCConnection>(LXPCHandle(pConnection));
    pRecord->Retain();
    if (!TakesDescriptors(pState->loKeys))
        port_refuse_descriptors(pConnection);
    LXPCSetHandler(pState, *pRecord);
    pState->_Add(std::move(pRecord));
}

// Destroyed without the mutex: the record cancels its connection, whose last event may come at once on another
// thread and ask for this.
void LXPCServerState::Drop(long connection) {
    delete _DetachByHandle(connection);
}

void LXPCServerState::Close() {
    while (LXPCConnection* pRecord = _DetachFirst())
        delete pRecord;
}

// Under one mutex, so that the first event, which may drop the record already, finds it in the list. A record that is
// not added is destroyed behind the mutex.
void LXPCServerState::_Add(std::unique_ptr<LXPCConnection> pRecord) {
    const std::lock_guard guard(mutexConnections);
    if (bClosed)
        return;
    pRecord->Resume();
    loConnections.AddHead(pRecord.release());
}

// The flag with each, under the mutex: a peer that is being accepted is not added behind the last one.
LXPCConnection* LXPCServerState::_DetachFirst() {
    const std::lock_guard guard(mutexConnections);
    bClosed = true;
    return loConnections.Detach(loConnections.GetFirst());
}

LXPCConnection* LXPCServerState::_DetachByHandle(long connection) {
    const std::lock_guard guard(mutexConnections);
    LListIterator<LXPCConnection> walk(loConnections);
    while (walk.Get() != nullptr && walk.Get()->GetHandle() != connection)
        walk.Next();
    return walk.Detach();
}
