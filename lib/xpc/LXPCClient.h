// The client: connections to named services, each known by the service's name and a number of the caller's.
//
// Thread-safety: none for the list of connections: callers keep `Connect`, `Disconnect` and everything that
// looks a connection up on one queue. Events arrive as `LXPCEventNotify` tells; replies arrive on the main
// dispatch queue only.
//
// Names are compared without regard to the case of ASCII letters and cut at 259 bytes. A second connection
// with the same name and number hides the first until it is disconnected.
//
// A connection is looked for among all, the newest first: who has many and sends on the old ones keeps the handle that
// came with their events, and sends on that (`LXPCBase::SendMessage`).
#pragma once

#include "xpc/LXPCBase.h"

#pragma GCC visibility push(default)

// A connection under its name and number.
class LXPCConnectionClient : public LXPCConnection {
public:
    LXPCConnectionClient() { szName[0] = '\0'; }
    // Takes over one reference on the handle; the retain count is 1.
    LXPCConnectionClient(long connection, const char* szServiceName, unsigned long dwServiceNumber);

    bool Matches(const char* szServiceName, unsigned long dwServiceNumber) const;

private:
    char szName[LPathBufferSize];
    unsigned long dwNumber = 0;
};

class LXPCClient : public LXPCBase {
public:
    // The sink is not owned and outlives the client.
    explicit LXPCClient(LXPCEventNotify* pSink);
    // Drops all connections, newest first, once the events have ended.
    ~LXPCClient() override;

    // Opens a connection to the named Mach service, or, with the flag off, to the named XPC service of the
    // application's bundle. True when the connection was created, which says nothing about the service: one
    // that is not there, or for which no descriptor is left, is reported as `EvConnectionError`, type invalid.
    bool Connect(const char* szServiceName, unsigned long dwNumber, bool bMachService);

    // The connection is cancelled and forgotten. Like the operations below: nothing when there is none under
    // that name and number.
    void Disconnect(const char* szServiceName, unsigned long dwNumber);

    // While suspended, events of the connection are held back.
    void Suspend(const char* szServiceName, unsigned long dwNumber);
    void Resume(const char* szServiceName, unsigned long dwNumber);

    // Sends `dwCount` items. They may point to temporaries: all is copied before the call returns. Of two
    // items with one name the earlier wins; a count of 0 sends an empty message. Answers and confirmations
    // arrive as `LXPCBase::SendMessage` tells.
    void SendMessage(const char* szServiceName, unsigned long dwNumber, const LXPCData* pItems,
                     unsigned long dwCount, bool bWantReply);
    using LXPCBase::SendMessage;

private:
    LXPCConnectionClient* _Find(const char* szServiceName, unsigned long dwNumber) const;

    LList<LXPCConnectionClient> loConnections;
};

#pragma GCC visibility pop
