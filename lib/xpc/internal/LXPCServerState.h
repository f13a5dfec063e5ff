// What the events of a server use besides: the records of its peers. Internal to the XPC layer.
//
// Thread-safety: any thread. One mutex guards the list while it changes; it is never held while a record is destroyed
// or the sink is called.
#pragma once

#include <memory>
#include <mutex>
#include <xpc/xpc.h>

#include "xpc/internal/LXPCEndpointState.h"

class LXPCServerState : public LXPCEndpointState {
public:
    LXPCServerState(LXPCServerEventNotify* pSink, bool bCheckPeers)
        : LXPCEndpointState(pSink), pServerNotify(pSink), bPeerCheck(bCheckPeers) {}

    // As `LXPCServerBase::NewConnectionHandler`; an event of the server.
    static void Accept(const port::Reference<LXPCServerState>& pState, _xpc_connection_s* pConnection);
    // Drops the newest record with that handle.
    void Drop(long connection);
    // Drops all records, newest first, and takes no further one.
    void Close();

private:
    void _Add(std::unique_ptr<LXPCConnection> pRecord);
    LXPCConnection* _DetachFirst();
    LXPCConnection* _DetachByHandle(long connection);

    LXPCServerEventNotify* const pServerNotify;
    const bool bPeerCheck;
    std::mutex mutexConnections;
    LList<LXPCConnection> loConnections;
    bool bClosed = false;
};
