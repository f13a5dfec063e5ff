#include "net/LIPSocket.h"

#include <port/net.h>
#include <sys/socket.h>
#include <utility>

#include "threads/LSignalObject.h"

bool LIPSocketTCP::Create() {
    Close();
    port::UniqueFd made(port_tcp_socket());
    if (!LSignalObjectRef::FitsSelect(made.get()))
        return false;
    const int nSendBuffer = 32768;
    setsockopt(made.get(), SOL_SOCKET, SO_SNDBUF, &nSendBuffer, sizeof nSendBuffer);
    descriptor = std::move(made);
    return true;
}
