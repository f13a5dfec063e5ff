// A thread that accepts TCP connections on a port and hands each of them to a call-back.
//
// It listens on every IPv4 address of the machine from `Start` to the stop (`StopThreadSoon`), which ends it
// at once when it waits and after the call-back when one runs. While the port cannot be had, and after a
// failed accept, it closes its socket and listens anew every 30 seconds; `IsListening` tells.
//
// A client that is served by a thread of its own (`LDetachedThread`) costs seven descriptors, and `select` can
// watch 1024 in a process: some 140 clients at once. For more `StartDetached` makes no thread, and the
// call-back lets the connection go.
//
// Thread-safety: as LThread. A subclass stops and waits for the thread in its own destructor
// (`_StopAndWait`), for the call-back is its own.
#pragma once

#include <port/Atomic.h>

#include "net/LIPSocket.h"
#include "threads/LThread.h"

#pragma GCC visibility push(default)

class LTCPListener : public LThread {
public:
    // The port in the host's byte order. Nothing is opened before `Start`.
    explicit LTCPListener(unsigned short wThePort) : wPort(wThePort) {}

    // Whether it has the port now, so that clients can connect.
    bool IsListening() const { return bListening.load(); }

protected:
    void ThreadFunction() override;

    // A connection, non-blocking and close-on-exec; one after another, on the listener's thread, and the
    // next is accepted when this returns. Who keeps it moves or detaches it; else it is closed then.
    virtual void EvConnection(LIPSocketTCP& socket) = 0;

private:
    bool _Listen(LIPSocketTCP& socket) const;
    void _AcceptConnections(LIPSocketTCPRef listening);
    bool _WaitForConnection(LIPSocketTCPRef listening);

    unsigned short wPort;
    port::Atomic<bool> bListening{false};
};

#pragma GCC visibility pop
