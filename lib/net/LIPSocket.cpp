#include "net/LIPSocket.h"

#include <port/net.h>
#include <sys/socket.h>
#include <utility>

LIPAddressWithPort LIPSocketTCPRef::GetPeerAddress() const {
    sockaddr_in peer{};
    socklen_t dwSize = sizeof peer;
    if (getpeername(nSocket, reinterpret_cast<sockaddr*>(&peer), &dwSize) != 0 || peer.sin_family != AF_INET)
        return {};
    return {peer.sin_addr, ntohs(peer.sin_port)};
}

bool LIPSocketTCP::Create() {
    Close();
    port::UniqueFd made(port_tcp_socket());
    // The waits are `select`s, for the socket and a stop together.
    if (!LSignalObjectRef::FitsSelect(made.get()))
        return false;
    const int nSendBuffer = 32768;
    setsockopt(made.get(), SOL_SOCKET, SO_SNDBUF, &nSendBuffer, sizeof nSendBuffer);
    descriptor = std::move(made);
    return true;
}
