// The peer of the footprint case: a service on sd-event and sd-bus that listens on the socket named on its
// command line.
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <unistd.h>

namespace {

int onPeer(sd_event_source*, int fd, uint32_t, void*) {
    close(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, argc > 1 ? argv[1] : "", sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sd_event* loop = nullptr;
    sd_bus* bus = nullptr;
    if (sd_event_default(&loop) < 0 || sd_bus_new(&bus) < 0 ||
        bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 8) != 0 ||
        sd_event_add_io(loop, nullptr, listener, 1 /* EPOLLIN */, onPeer, nullptr) < 0)
        return 1;
    return sd_event_loop(loop) < 0 ? 1 : 0;
}
