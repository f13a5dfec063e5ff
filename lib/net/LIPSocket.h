// TCP sockets: the owner of a descriptor, and the value that the operations on a connection take.
//
// Thread-safety: as plain values. Of a socket's operations one is under way at a time.
#pragma once

#include <port/UniqueFd.h>

// A socket that belongs to somebody else; -1 when there is none.
class LIPSocketTCPRef {
public:
    explicit LIPSocketTCPRef(int nDescriptor) : nSocket(nDescriptor) {}
    int GetDescriptor() const { return nSocket; }

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
