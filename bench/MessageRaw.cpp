// The floor of the message benchmarks: blocking Unix stream sockets, one write a message.
#include "Driver.h"
#include "MessageLoad.h"

#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace bench {
namespace {

bool readAll(int fd, char* buffer, std::size_t size) {
    while (size > 0) {
        const ssize_t got = read(fd, buffer, size);
        if (got <= 0)
            return false;
        buffer += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

bool writeAll(int fd, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, bytes, size);
        if (written <= 0)
            return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

void echo(int fd) {
    char buffer[kSmallSize];
    while (readAll(fd, buffer, sizeof buffer) && writeAll(fd, buffer, sizeof buffer)) {
    }
}

struct Pair {
    int ends[2] = {-1, -1};
    Pair() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
            ends[0] = ends[1] = -1;
    }
    ~Pair() {
        close(ends[0]);
        close(ends[1]);
    }
};

Sample roundTrips(const Load& load, PairUse* use) {
    const Pair pair;
    return measurePair(
        load.placement, [&] { echo(pair.ends[0]); },
        [&] {
            char buffer[kSmallSize] = {};
            std::vector<double> times;
            for (std::size_t i = 0; i < load.count; ++i) {
                pauseFor(load.pause);
                const auto start = Clock::now();
                need(writeAll(pair.ends[1], buffer, sizeof buffer) &&
                         readAll(pair.ends[1], buffer, sizeof buffer),
                     "the socket ended");
                times.push_back(nanosecondsSince(start) / 1000);
            }
            return distribution(times);
        },
        use);
}

// Writes the messages, then waits for one byte that the reader sends when it has read them all.
Sample stream(const Load& load, std::size_t size, PairUse* use) {
    const Pair pair;
    return measurePair(
        load.placement,
        [&] {
            const auto buffer = std::make_unique<char[]>(kLargeSize);
            std::size_t left = load.count * size;
            while (left > 0) {
                const ssize_t got = read(pair.ends[0], buffer.get(), kLargeSize);
                if (got <= 0)
                    return;
                left -= static_cast<std::size_t>(got);
            }
            writeAll(pair.ends[0], "!", 1);
            pause();
        },
        [&] {
            const auto buffer = std::make_unique<char[]>(size);
            const auto start = Clock::now();
            for (std::size_t i = 0; i < load.count; ++i)
                need(writeAll(pair.ends[1], buffer.get(), size), "the socket ended");
            char done;
            need(readAll(pair.ends[1], &done, 1), "the reader ended");
            return static_cast<double>(load.count) / (nanosecondsSince(start) * 1e-9);
        },
        use);
}

Sample smallMessages(const Load& load, PairUse* use) {
    return stream(load, kSmallSize, use);
}
Sample largeMessages(const Load& load, PairUse* use) {
    return stream(load, kLargeSize, use);
}

Sample connects(const Load& load, PairUse* use) {
    const ScratchFolder folder;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (folder.path() + "/floor").c_str(), sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    need(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
             listen(listener, 64) == 0,
         "no listening socket");
    const Sample sample = measurePair(
        load.placement,
        [&] {
            for (;;) {
                const int peer = accept(listener, nullptr, nullptr);
                echo(peer);
                close(peer);
            }
        },
        [&] {
            char buffer[kSmallSize] = {};
            const auto start = Clock::now();
            for (std::size_t i = 0; i < load.count; ++i) {
                const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
                need(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                         writeAll(fd, buffer, sizeof buffer) && readAll(fd, buffer, sizeof buffer),
                     "a connection failed");
                close(fd);
            }
            return static_cast<double>(load.count) / (nanosecondsSince(start) * 1e-9);
        },
        use);
    close(listener);
    return sample;
}

} // namespace

const Carrier kRawSocket = {roundTrips, smallMessages, largeMessages, connects};

} // namespace bench
