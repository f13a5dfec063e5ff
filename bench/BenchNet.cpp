// TCP over the loopback, beside blocking calls and beside a select before each receiving. Every row has the
// library's own socket setup at both ends; what differs is how they wait.
#include "Driver.h"

#include <fcntl.h>
#include <functional>
#include <net/LProcessSocket.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <thread>
#include <threads/LThread.h>
#include <utility>
#include <vector>

namespace bench {
namespace {

// One end of a connection; the ways to wait derive from it.
struct End {
    explicit End(int socket) : fd(socket) {}
    const int fd;
    void setBlocking() const { fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK); }
};

struct Blocking : End {
    Blocking(LProcessInterface&, int socket) : End(socket) { setBlocking(); }
    bool sendAll(const char* bytes, std::size_t size) const {
        return ::send(fd, bytes, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size);
    }
    std::size_t receive(char* bytes, std::size_t size) const {
        const ssize_t got = ::recv(fd, bytes, size, 0);
        return got > 0 ? static_cast<std::size_t>(got) : 0;
    }
};

struct SelectFirst : Blocking {
    using Blocking::Blocking;
    std::size_t receive(char* bytes, std::size_t size) const {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval limit{0, 200000};
        return select(fd + 1, &set, nullptr, nullptr, &limit) > 0 ? Blocking::receive(bytes, size) : 0;
    }
};

// Every call asks the thread whether to stop.
struct Library : End {
    Library(LProcessInterface& asked, int socket) : End(socket), process(asked) {}
    bool sendAll(const char* bytes, std::size_t size) const {
        return ProcessSend(process, LIPSocketTCPRef(fd), bytes, size, 10000) == LProcessFinished;
    }
    std::size_t receive(char* bytes, std::size_t size) const {
        unsigned long got;
        ProcessRecvReady(process, LIPSocketTCPRef(fd), bytes, size, got, 10000);
        return got;
    }
    LProcessInterface& process;
};

template <typename Way>
bool receiveAll(const Way& way, char* bytes, std::size_t size) {
    while (size != 0) {
        const std::size_t got = way.receive(bytes, size);
        if (got == 0)
            return false;
        bytes += got;
        size -= got;
    }
    return true;
}

// The two ends of a connection over the loopback.
struct Connection {
    LIPSocketTCP here, there;
    Connection() {
        LIPSocketTCP listening;
        LIPAddressWithPort address("127.0.0.1", 0);
        socklen_t size = sizeof(sockaddr_in);
        LProcessInterfaceVoid process;
        if (!listening.Create() || bind(listening.GetDescriptor(), address.GetSocketAddress(), size) != 0 ||
            listen(listening.GetDescriptor(), 1) != 0)
            return;
        sockaddr_in bound = address;
        getsockname(listening.GetDescriptor(), reinterpret_cast<sockaddr*>(&bound), &size);
        ProcessConnect(process, here, {bound.sin_addr, ntohs(bound.sin_port)}, 1000);
        there = LIPSocketTCP(accept4(listening.GetDescriptor(), nullptr, nullptr, SOCK_NONBLOCK));
    }
};

// The work of one end, on a thread that could be stopped and on a processor of its own, as two machines have.
struct Worker : LThread {
    Worker(unsigned theProcessor, std::function<void(LProcessInterface&)> theWork)
        : processor(theProcessor % std::thread::hardware_concurrency()), work(std::move(theWork)) {
        Start(31);
    }
    ~Worker() override {
        while (IsRunning() && !GetFinishedSignal().WaitSignal(LNoTimeLimit)) {
        }
        _StopAndWait();
    }
    void ThreadFunction() override {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        pthread_setaffinity_np(pthread_self(), sizeof one, &one);
        work(*this);
    }
    const unsigned processor;
    const std::function<void(LProcessInterface&)> work;
};

constexpr std::size_t kMessage = 100;

template <typename Way>
double roundTrip() {
    constexpr int kRounds = 4000;
    Connection connection;
    double spent = -1;
    const Worker other(1, [&](LProcessInterface& process) {
        const Way way(process, connection.there.GetDescriptor());
        char message[kMessage];
        for (int i = 0; i < kRounds; ++i)
            if (!receiveAll(way, message, kMessage) || !way.sendAll(message, kMessage))
                return;
    });
    {
        const Worker self(0, [&](LProcessInterface& process) {
            const Way way(process, connection.here.GetDescriptor());
            char message[kMessage] = {};
            const auto start = Clock::now();
            for (int i = 0; i < kRounds; ++i)
                if (!way.sendAll(message, kMessage) || !receiveAll(way, message, kMessage))
                    return;
            spent = nanosecondsSince(start) / kRounds / 1000;
        });
    }
    shutdown(connection.here.GetDescriptor(), SHUT_RDWR); // ends the other end after a failure, too
    return spent;
}

template <typename Way>
double stream() {
    constexpr std::size_t kPiece = 64 << 10;
    constexpr std::size_t kWhole = std::size_t{512} << 20;
    Connection connection;
    double speed = -1;
    const Worker other(1, [&](LProcessInterface& process) {
        const Way way(process, connection.there.GetDescriptor());
        const std::vector<char> piece(kPiece, 'x');
        for (std::size_t sent = 0; sent < kWhole; sent += kPiece)
            if (!way.sendAll(piece.data(), kPiece))
                return;
    });
    {
        const Worker self(0, [&](LProcessInterface& process) {
            const Way way(process, connection.here.GetDescriptor());
            std::vector<char> piece(kPiece);
            const auto start = Clock::now();
            std::size_t all = 0;
            for (std::size_t got; all < kWhole && (got = way.receive(piece.data(), kPiece)) != 0;)
                all += got;
            if (all == kWhole)
                speed = static_cast<double>(kWhole) / nanosecondsSince(start);
        });
    }
    shutdown(connection.here.GetDescriptor(), SHUT_RDWR); // ends the other end after a failure, too
    return speed;
}

const Register net{[](std::vector<Case>& cases) {
    cases.push_back({"net/round trip of 100 bytes",
                     "us",
                     Better::Lower,
                     {{"floor: blocking send and recv", roundTrip<Blocking>},
                      {"select before each recv", roundTrip<SelectFirst>},
                      {"ProcessSend, ProcessRecvReady", roundTrip<Library>}}});
    cases.push_back({"net/stream in pieces of 64 KiB",
                     "GB/s",
                     Better::Higher,
                     {{"floor: blocking send and recv", stream<Blocking>},
                      {"select before each recv", stream<SelectFirst>},
                      {"ProcessSend, ProcessRecvReady", stream<Library>}}});
}};

} // namespace
} // namespace bench
