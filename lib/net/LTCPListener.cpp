#include "net/LTCPListener.h"

#include <cerrno>
#include <port/net.h>
#include <sys/socket.h>

#include "base/LAtEnd.h"
#include "debug/LDebugThread.h"
#include "net/LIPAddress.h"

namespace {

constexpr int kBacklog = 50;
constexpr unsigned int kListenAnewTime = 30000; // milliseconds

// The thread's entry in the table of debug names while its function runs.
struct DebugEntry {
    explicit DebugEntry(const char* szName) {
        LDebugThreadDataStartThread(szName);
        LDebugThreadSetName(szName);
    }
    DebugEntry(const DebugEntry&) = delete;
    ~DebugEntry() { LDebugThreadDataStopThread(); }
};

} // namespace

void LTCPListener::ThreadFunction() {
    const DebugEntry entry("LTCPListener");
    do {
        LIPSocketTCP listening;
        // Behind the socket, so it runs before that is closed: nobody is told of a port that is gone.
        const LAtEnd closed([this] { bListening.store(false); });
        bListening.store(_Listen(listening));
        if (IsListening())
            _AcceptConnections(listening);
    } while (!ProcessWait(kListenAnewTime));
}

// SO_REUSEADDR, for connections of a run before may linger on the port for minutes.
bool LTCPListener::_Listen(LIPSocketTCP& socket) const {
    if (!socket.Create())
        return false;
    const int nOn = 1;
    setsockopt(socket.GetDescriptor(), SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn);
    const LIPAddressWithPort anywhere(in_addr{INADDR_ANY}, wPort);
    return bind(socket.GetDescriptor(), anywhere.GetSocketAddress(), sizeof(sockaddr_in)) == 0 &&
           listen(socket.GetDescriptor(), kBacklog) == 0;
}

// On the listener's thread. One that has gone between the wait and the accept is no failure; any other, such as
// a want of descriptors, would come again at once, so the port is given up for a while.
void LTCPListener::_AcceptConnections(LIPSocketTCPRef listening) {
    while (_WaitForConnection(listening)) {
        const int nConnection = port_tcp_accept(listening.GetDescriptor());
        if (nConnection < 0 && errno != ECONNABORTED)
            return;
        LIPSocketTCP connection(nConnection);
        if (connection.IsOpen())
            EvConnection(connection);
        if (IsToStop())
            return;
    }
}

// A connection that is there already is still served when the stop comes. A POSIX signal, which ends the
// thread's wait as failed, does not cost the port.
bool LTCPListener::_WaitForConnection(LIPSocketTCPRef listening) {
    const LSignalObjectRef ready = listening.GetReadableSignal();
    for (;;) {
        errno = 0;
        const int nWait = LThread::ProcessWaitSignal(ready, LNoTimeLimit);
        if (nWait == LProcessWaitStopped)
            return ready.IsSignaled();
        if (nWait == LProcessWaitSignaled || errno != EINTR)
            return nWait == LProcessWaitSignaled;
    }
}
