// The peer of the message benchmarks: sd-bus, point to point over a socket, no daemon between.
#include "Driver.h"
#include "MessageLoad.h"

#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr char kPath[] = "/bench";
constexpr char kInterface[] = "bench.Messages";

int onAsk(sd_bus_message* message, void*, sd_bus_error*) {
    int flag = 0;
    const char* text = nullptr;
    if (sd_bus_message_read(message, "bs", &flag, &text) < 0)
        return -1;
    return sd_bus_reply_method_return(message, "b", 1);
}

int onText(sd_bus_message* message, void*, sd_bus_error*) {
    const char* text = nullptr;
    return sd_bus_message_read(message, "s", &text) < 0 ? -1 : 1;
}

int onData(sd_bus_message* message, void*, sd_bus_error*) {
    const void* bytes = nullptr;
    size_t size = 0;
    return sd_bus_message_read_array(message, 'y', &bytes, &size) < 0 ? -1 : 1;
}

const sd_bus_vtable kMethods[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Ask", "bs", "b", onAsk, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Text", "s", "", onText, SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
    SD_BUS_METHOD("Data", "ay", "", onData, SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
    SD_BUS_VTABLE_END,
};

void serve(int fd) {
    sd_bus* bus = nullptr;
    sd_id128_t id{};
    sd_id128_randomize(&id);
    if (sd_bus_new(&bus) < 0 || sd_bus_set_fd(bus, fd, fd) < 0 || sd_bus_set_server(bus, 1, id) < 0 ||
        sd_bus_set_anonymous(bus, 1) < 0 || sd_bus_start(bus) < 0 ||
        sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, kMethods, nullptr) < 0)
        return;
    for (;;) {
        const int done = sd_bus_process(bus, nullptr);
        if (done < 0)
            break;
        if (done == 0 && sd_bus_wait(bus, UINT64_MAX) < 0)
            break;
    }
    sd_bus_close_unref(bus);
}

sd_bus* openClient(int fd) {
    sd_bus* bus = nullptr;
    if (sd_bus_new(&bus) < 0 || sd_bus_set_fd(bus, fd, fd) < 0 || sd_bus_set_anonymous(bus, 1) < 0 ||
        sd_bus_start(bus) < 0)
        return nullptr;
    return bus;
}

bool ask(sd_bus* bus) {
    sd_bus_message* reply = nullptr;
    const int result = sd_bus_call_method(bus, nullptr, kPath, kInterface, "Ask", nullptr, &reply, "bs", 1,
                                          "a string of an ordinary length");
    sd_bus_message_unref(reply);
    return result >= 0;
}

Sample withPair(Placement placement, const std::function<Sample(sd_bus*)>& work, PairUse* use) {
    int ends[2];
    need(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "no sockets");
    const Sample sample = measurePair(
        placement, [&] { serve(ends[0]); },
        [&] {
            sd_bus* bus = openClient(ends[1]);
            need(bus != nullptr && ask(bus), "no connection");
            return work(bus);
        },
        use);
    close(ends[0]);
    close(ends[1]);
    return sample;
}

Sample roundTrips(const Load& load, PairUse* use) {
    const auto work = [&](sd_bus* bus) {
        std::vector<double> times;
        for (std::size_t i = 0; i < load.count; ++i) {
            pauseFor(load.pause);
            const auto start = Clock::now();
            need(ask(bus), "no answer");
            times.push_back(nanosecondsSince(start) / 1000);
        }
        return distribution(times);
    };
    return withPair(load.placement, work, use);
}

// sd-bus queues what the socket does not take; flushing now and then keeps the queue below its limit.
Sample stream(const Load& load, PairUse* use, std::size_t window, const char* method,
              const std::function<int(sd_bus_message*)>& fill) {
    const auto work = [&](sd_bus* bus) {
        const auto start = Clock::now();
        for (std::size_t i = 0; i < load.count; ++i) {
            sd_bus_message* message = nullptr;
            need(sd_bus_message_new_method_call(bus, &message, nullptr, kPath, kInterface, method) >= 0 &&
                     sd_bus_message_set_expect_reply(message, 0) >= 0 && fill(message) >= 0 &&
                     sd_bus_send(bus, message, nullptr) >= 0,
                 "a message was refused");
            sd_bus_message_unref(message);
            if (i % window == 0)
                sd_bus_flush(bus);
        }
        need(ask(bus), "no answer");
        return static_cast<double>(load.count) / (nanosecondsSince(start) * 1e-9);
    };
    return withPair(load.placement, work, use);
}

Sample smallMessages(const Load& load, PairUse* use) {
    static const std::string text(kSmallSize, 'x');
    return stream(load, use, 64, "Text",
                  [](sd_bus_message* message) { return sd_bus_message_append(message, "s", text.c_str()); });
}

Sample largeMessages(const Load& load, PairUse* use) {
    static const std::string data(kLargeSize, 'x');
    return stream(load, use, 4, "Data", [](sd_bus_message* message) {
        return sd_bus_message_append_array(message, 'y', data.data(), data.size());
    });
}

Sample connects(const Load& load, PairUse* use) {
    const ScratchFolder folder;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (folder.path() + "/peer").c_str(), sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    need(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
             listen(listener, 64) == 0,
         "no listening socket");
    const Sample sample = measurePair(
        load.placement,
        [&] {
            for (;;)
                serve(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        },
        [&] {
            const auto start = Clock::now();
            for (std::size_t i = 0; i < load.count; ++i) {
                const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
                need(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0,
                     "a connection failed");
                sd_bus* bus = openClient(fd);
                need(bus != nullptr && ask(bus), "no answer");
                sd_bus_close_unref(bus);
            }
            return static_cast<double>(load.count) / (nanosecondsSince(start) * 1e-9);
        },
        use);
    close(listener);
    return sample;
}

} // namespace

const Carrier kSdBus = {roundTrips, smallMessages, largeMessages, connects};

} // namespace bench
