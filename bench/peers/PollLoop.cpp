// The floor of the footprint case: a C++ program that listens on the socket named on its command line and
// sleeps in poll.
#include <cstring>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

int main(int argc, char** argv) {
    const std::string path = argc > 1 ? argv[1] : "";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    pollfd waited{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), POLLIN, 0};
    if (bind(waited.fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(waited.fd, 8) != 0)
        return 1;
    for (;;) {
        if (poll(&waited, 1, -1) > 0) {
            const int peer = accept4(waited.fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (shutdown(peer, SHUT_RDWR) != 0)
                return 1;
        }
    }
}
