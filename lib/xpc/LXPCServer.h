// Servers: they accept the connections of peers, on a named Mach service or as the main loop of an XPC
// service bundle, and keep a record of each until it is dropped.
//
// Thread-safety: `NewConnectionHandler` and `Disconnect` may be called from any thread. New peers arrive on the main
// dispatch queue, events of accepted connections off the main thread.
//
// The sink is not owned and outlives the server. Keys are declared between construction and `Start`.
#pragma once

#include <port/Atomic.h>
#include <xpc/xpc.h>

#include "xpc/LXPCBase.h"

class LXPCServerState;

#pragma GCC visibility push(default)

class LXPCServerBase : public LXPCBase {
public:
    explicit LXPCServerBase(LXPCServerEventNotify* pSink);
    // Drops all connections, newest first, once the events have ended. The listener is not stopped; peers that come
    // later are ignored.
    ~LXPCServerBase() override;

    // Takes a new peer: records it, newest first, and lets its events reach the sink. With the peer check on,
    // a peer whose process id is not within 1 to 99999 is left alone and reported by
    // `EvInvalidConnectionAttempt`. Where no key for descriptors is declared, a message that brings one ends its
    // connection. Null, or an object that is no connection, is ignored.
    void NewConnectionHandler(_xpc_connection_s* pConnection);

    // Drops the newest record with that handle: the connection is cancelled. Unknown handles do nothing.
    // May be called from an event of that connection.
    void Disconnect(long connection);

    // The server that was constructed last; null once any server has been destroyed.
    static inline port::Atomic<LXPCServerBase*> pServer = nullptr;

protected:
    LXPCServerBase(LXPCServerEventNotify* pSink, bool bCheckPeers);
    // What the events share, of this server and of the one in `pServer`; null for none.
    const port::Reference<LXPCServerState>& _GetState() const { return pServerState; }
    static port::Reference<LXPCServerState> _GetCurrentState();

private:
    explicit LXPCServerBase(port::Reference<LXPCServerState> pShared);

    port::Reference<LXPCServerState> pServerState;
};

// The server of an XPC service bundle; accepts every peer.
class LXPCServer : public LXPCServerBase {
public:
    explicit LXPCServer(LXPCServerEventNotify* pSink) : LXPCServerBase(pSink, false) {}

    // Gives the calling thread to the service's main loop.
    [[noreturn]] void Start();

    // Hands the peer to the server in `pServer`, which may be destroyed meanwhile on another thread.
    static void StaticNewConnectionHandler(_xpc_connection_s* pConnection);
};

// The server of a named Mach service; checks the process id of its peers.
class LXPCMachServer : public LXPCServerBase {
public:
    explicit LXPCMachServer(LXPCServerEventNotify* pSink) : LXPCServerBase(pSink, true) {}

    // False when the service cannot be created: its name is unusable or another live process owns it; errno
    // tells (EADDRINUSE: another process). Else the calling thread becomes the main loop and serves the main
    // dispatch queue; the call never returns.
    bool Start(const char* szServiceName);
};

#pragma GCC visibility pop
