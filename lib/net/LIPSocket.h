// TCP sockets: the owner of a descriptor, and the value that the operations on a connection take.
//
// Thread-safety: as plain values. One thread may receive from a socket or wait for it while another sends on
// it; beyond these two, one operation is under way at a time, and none while the socket is closed or moved.
#pragma once

#include <port/UniqueFd.h>

#include "net/LIPAddress.h"
#include "threads/LSignalObject.h"

#pragma GCC visibility push(default)

// A socket that belongs to somebody else; -1 when there is none.
class LIPSocketTCPRef {
public:
    explicit LIPSocketTCPRef(int nDescriptor) : nSocket(nDescriptor) {}
    int GetDescriptor() const { return nSocket; }

    // The other end of a connection; not resolved when there is none.
    LIPAddressWithPort GetPeerAddress() const;

    // A signal that is set as long as something is there to be received: data, the peer's close, or, of a
    // socket that listens, a connection. For waits on a socket and a signal or a stop together
    // (`WaitSignalDual`, `LThread::ProcessWaitSignal`, groups). Only to be waited on: setting it does nothing,
    // and a reset would receive the data. It lives no longer than the socket.
    LSignalObjectRef GetReadableSignal() const { return {nSocket, -1}; }

private:
    int nSocket;
};

// Owns its socket and closes it; may be moved.
class LIPSocketTCP {
public:
    LIPSocketTCP() = default;
    explicit LIPSocketTCP(int nDescriptor) : descriptor(nDescriptor) {}

    operator LIPSocketTCPRef() const { return LIPSocketTCPRef(descriptor.get()); }
    int GetDescriptor() const { return descriptor.get(); }
    bool IsOpen() const { return descriptor.get() >= 0; }
    LIPAddressWithPort GetPeerAddress() const { return LIPSocketTCPRef(*this).GetPeerAddress(); }
    LSignalObjectRef GetReadableSignal() const { return LIPSocketTCPRef(*this).GetReadableSignal(); }

    // Gives the descriptor up to the caller; the object holds none any more.
    int Detach() { return descriptor.release(); }
    void Close() { descriptor.reset(); }

    // Closes what is held and makes a socket of our own: non-blocking, close-on-exec, with a send buffer of
    // 32768 bytes and without SIGPIPE. False, and none is held, when the system gives none, or one that
    // `select` cannot watch.
    bool Create();

private:
    port::UniqueFd descriptor;
};

#pragma GCC visibility pop
