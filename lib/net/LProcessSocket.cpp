#include "net/LProcessSocket.h"

#include <bitset>
#include <cerrno>
#include <port/net.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "base/LDeadline.h"

namespace {

constexpr unsigned int kSliceTime = 200; // milliseconds

// Connecting and receiving add a slice to the time-out in 32 bits; a sum that wraps leaves one slice.
unsigned int WrappedTimeout(unsigned int timeout) {
    return timeout + kSliceTime < kSliceTime ? 0 : timeout;
}

// The idle slices that a time-out allows.
class IdleSlices {
public:
    explicit IdleSlices(unsigned int timeout) : dwLeft(timeout) {}
    // After an idle slice: whether there is time for another.
    bool Next() {
        if (dwLeft <= kSliceTime)
            return false;
        dwLeft -= kSliceTime;
        return true;
    }

private:
    unsigned int dwLeft;
};

enum class Until { Readable, Writable, Connected };
enum class Slice { Ready, Idle, Failed };

// A slice lasts its time however many POSIX signals interrupt it. The time-out is rebuilt for each call
// because `select` may change it.
Slice WaitSlice(int nDescriptor, Until until) {
    const LDeadline deadline(kSliceTime);
    for (;;) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(nDescriptor, &set);
        fd_set exceptional = set;
        timeval limit{0, static_cast<suseconds_t>(deadline.GetRemaining() * 1000)};
        const bool bRead = until == Until::Readable;
        const int nReady = select(nDescriptor + 1, bRead ? &set : nullptr, bRead ? nullptr : &set,
                                  until == Until::Connected ? &exceptional : nullptr, &limit);
        if (nReady == 0)
            return Slice::Idle;
        if (nReady > 0)
            return FD_ISSET(nDescriptor, &set) ? Slice::Ready : Slice::Failed;
        if (errno != EINTR)
            return Slice::Failed;
    }
}

// The stop has been asked for already.
int WaitReadable(LProcessInterface& process, int nDescriptor, unsigned int timeout) {
    IdleSlices slices(WrappedTimeout(timeout));
    while (WaitSlice(nDescriptor, Until::Readable) == Slice::Idle) {
        if (!slices.Next())
            return LProcessFailed;
        if (process.IsToStop())
            return LProcessStopped;
    }
    return LProcessFinished;
}

// One `recv`, as soon as it gives something. It is tried before it is waited for: where data keeps coming
// that is the only call.
int Receive(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
            int nFlags, unsigned long& dwReceived, unsigned int timeout) {
    dwReceived = 0;
    const int nDescriptor = socket.GetDescriptor();
    if (!LSignalObjectRef::FitsSelect(nDescriptor))
        return LProcessFailed;
    if (process.IsToStop())
        return LProcessStopped;
    ssize_t nGot = port_recv(nDescriptor, pBuffer, dwSize, nFlags);
    if (nGot < 0 && errno == EAGAIN) {
        const int nWait = WaitReadable(process, nDescriptor, timeout);
        if (nWait != LProcessFinished)
            return nWait;
        nGot = port_recv(nDescriptor, pBuffer, dwSize, nFlags);
    }
    if (nGot < 1)
        return LProcessFailed;
    dwReceived = static_cast<unsigned long>(nGot);
    return LProcessFinished;
}

// The number of bytes up to and including the first terminator; all of them when there is none.
unsigned long LengthToTerminator(const unsigned char* pBytes, unsigned long dwSize,
                                 const char* szTerminators) {
    std::bitset<256> terminators;
    for (; *szTerminators != '\0'; ++szTerminators)
        terminators.set(static_cast<unsigned char>(*szTerminators));
    unsigned long dwLength = 0;
    while (dwLength < dwSize && !terminators[pBytes[dwLength++]]) {
    }
    return dwLength;
}

// An error that is there when connecting has only begun is connect's own: a port of this machine refuses
// like that. Reading it takes it away, and the socket would seem writable.
bool BeginConnect(int nDescriptor, const LIPAddressWithPort& address, bool& bConnected) {
    bConnected = connect(nDescriptor, address.GetSocketAddress(), sizeof(sockaddr_in)) == 0;
    if (bConnected)
        return true;
    int nError = 0;
    socklen_t dwSize = sizeof nError;
    return errno == EINPROGRESS && getsockopt(nDescriptor, SOL_SOCKET, SO_ERROR, &nError, &dwSize) == 0 &&
           nError == 0;
}

// The socket does not block, so the connecting goes on in the kernel while this thread waits in slices, and
// asks between them whether it is to stop.
int Connect(LProcessInterface& process, LIPSocketTCP& socket, const LIPAddressWithPort& address,
            unsigned int timeout) {
    bool bConnected;
    if (!socket.Create() || !address.IsResolved() ||
        !BeginConnect(socket.GetDescriptor(), address, bConnected))
        return LProcessFailed;
    if (bConnected)
        return LProcessFinished;
    IdleSlices slices(WrappedTimeout(timeout));
    for (;;) {
        const Slice slice = WaitSlice(socket.GetDescriptor(), Until::Connected);
        if (slice != Slice::Idle)
            return slice == Slice::Ready ? LProcessFinished : LProcessFailed;
        if (process.IsToStop())
            return LProcessStopped;
        if (!slices.Next())
            return LProcessFailed;
    }
}

} // namespace

int ProcessConnect(LProcessInterface& process, LIPSocketTCP& socket, const LIPAddressWithPort& address,
                   unsigned int timeout) {
    const int nResult = Connect(process, socket, address, timeout);
    if (nResult != LProcessFinished)
        socket.Close();
    return nResult;
}

int ProcessConnect(LProcessInterface& process, LIPSocketTCP& socket,
                   const LIPAddressMultiHomedWithPort& address, unsigned int timeout) {
    for (unsigned int i = 0; i < address.GetCount(); ++i) {
        const int nResult = ProcessConnect(process, socket, address.GetAddress(i), timeout);
        if (nResult != LProcessFailed)
            return nResult;
    }
    socket.Close();
    return LProcessFailed;
}

int ProcessSend(LProcessInterface& process, LIPSocketTCPRef socket, const void* pData, unsigned long dwSize,
                unsigned int timeout) {
    const int nDescriptor = socket.GetDescriptor();
    const auto* pNext = static_cast<const unsigned char*>(pData);
    // Sending does not wrap the time-out, as connecting and receiving do.
    IdleSlices slices(timeout);
    while (!process.IsToStop()) {
        if (!LSignalObjectRef::FitsSelect(nDescriptor))
            return LProcessFailed;
        const ssize_t nSent = port_send(nDescriptor, pNext, dwSize);
        if (nSent < 0 && errno != EAGAIN)
            return LProcessFailed;
        if (nSent >= 0) {
            pNext += nSent;
            dwSize -= static_cast<unsigned long>(nSent);
            if (dwSize == 0)
                return LProcessFinished;
        }
        const Slice slice = WaitSlice(nDescriptor, Until::Writable);
        if (slice == Slice::Failed || (slice == Slice::Idle && !slices.Next()))
            return LProcessFailed;
    }
    return LProcessStopped;
}

int ProcessWaitForDataOrClose(LProcessInterface& process, LIPSocketTCPRef socket, unsigned int timeout) {
    if (!LSignalObjectRef::FitsSelect(socket.GetDescriptor()))
        return LProcessFailed;
    return process.IsToStop() ? LProcessStopped : WaitReadable(process, socket.GetDescriptor(), timeout);
}

int ProcessRecvReady(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
                     unsigned long& dwReceived, unsigned int timeout) {
    dwReceived = 0;
    return dwSize == 0 ? LProcessFinished : Receive(process, socket, pBuffer, dwSize, 0, dwReceived, timeout);
}

int ProcessRecvBytes(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
                     unsigned int timeout) {
    unsigned long dwReceived;
    return ProcessRecvBytes(process, socket, pBuffer, dwSize, dwReceived, timeout);
}

int ProcessRecvBytes(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
                     unsigned long& dwReceived, unsigned int timeout) {
    dwReceived = 0;
    if (static_cast<long>(dwSize) <= 0)
        return LProcessFinished;
    auto* pBytes = static_cast<unsigned char*>(pBuffer);
    // Each part has the whole time-out: it is the silence that is limited, not the transfer.
    while (dwReceived < dwSize) {
        unsigned long dwPart;
        const int nResult =
            ProcessRecvReady(process, socket, pBytes + dwReceived, dwSize - dwReceived, dwPart, timeout);
        if (nResult != LProcessFinished)
            return nResult;
        dwReceived += dwPart;
    }
    return LProcessFinished;
}

int ProcessRecvByte(LProcessInterface& process, LIPSocketTCPRef socket, unsigned char& byte,
                    unsigned int timeout) {
    byte = 0;
    unsigned long dwReceived;
    return ProcessRecvReady(process, socket, &byte, 1, dwReceived, timeout);
}

// Looked at before it is taken: what stands behind the terminator stays in the socket for the next call. Nobody
// else receives in between, so what was seen is still there.
int ProcessRecvToCharacter(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer,
                           unsigned long dwSize, unsigned long& dwReceived, const char* szTerminators,
                           unsigned int timeout) {
    unsigned long dwThere;
    const int nResult = Receive(process, socket, pBuffer, dwSize, MSG_PEEK, dwThere, timeout);
    dwReceived = 0;
    if (nResult != LProcessFinished)
        return nResult;
    const unsigned long dwLength =
        LengthToTerminator(static_cast<const unsigned char*>(pBuffer), dwThere, szTerminators);
    const ssize_t nTaken = port_recv(socket.GetDescriptor(), pBuffer, dwLength, 0);
    if (nTaken < 1)
        return LProcessFailed;
    dwReceived = static_cast<unsigned long>(nTaken);
    return LProcessFinished;
}

int ProcessRecvAll(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
                   unsigned long& dwReceived, unsigned int timeout) {
    const int nResult = ProcessRecvBytes(process, socket, pBuffer, dwSize, dwReceived, timeout);
    return nResult == LProcessStopped ? LProcessStopped : LProcessFinished;
}
