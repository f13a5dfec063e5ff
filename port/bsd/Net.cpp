#include <port/net.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <port/bsd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "host/SystemCalls.h"

namespace {

// Bytes: the largest segment that the platform ever sends, that of its loopback. Here the loopback's segments
// have 64 KiB: a single one fills a send buffer of 32768 bytes, which the kernel doubles, and the next waits
// until that one's delayed acknowledgement has come, 40 ms later.
constexpr int kLargestSegment = 16344;

} // namespace

int port_tcp_socket() {
    const int made = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (made >= 0)
        setsockopt(made, IPPROTO_TCP, TCP_MAXSEG, &kLargestSegment, sizeof kLargestSegment);
    return made;
}

int port_tcp_accept(int listening) {
    return port::sys::accept4(listening, nullptr, nullptr, SOCK_NONBLOCK);
}

int port_local_socket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

int port_local_accept(int listening) {
    return port::sys::accept4(listening, nullptr, nullptr, 0);
}

// The mode of the socket before it is bound is that of its file, but for the mask, which may take even our bits.
bool port_local_bind(int socket, const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    constexpr mode_t kOurs = S_IRUSR | S_IWUSR;
    if (strlcpy(address.sun_path, path, sizeof address.sun_path) >= sizeof address.sun_path ||
        fchmod(socket, kOurs) != 0)
        return false;
    if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return false;
    [[maybe_unused]] const int ignored = fchmodat(AT_FDCWD, path, kOurs, AT_SYMLINK_NOFOLLOW);
    return true;
}

ssize_t port_send(int socket, const void* bytes, std::size_t size) {
    return send(socket, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
}

ssize_t port_recv(int socket, void* buffer, std::size_t size, int flags) {
    return recv(socket, buffer, size, flags | MSG_DONTWAIT);
}
