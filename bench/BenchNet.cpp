// TCP over the loopback, beside blocking calls and beside a select before each receiving. Every row has the
// library's own socket setup at both ends; what differs is how they wait.
#include "Driver.h"
#include "Processes.h"

#include <ctime>
#include <fcntl.h>
#include <functional>
#include <net/LProcessSocket.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
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

// The work of one end, on a thread that could be stopped, and on one processor.
struct Worker : LThread {
    Worker(int theProcessor, std::function<void(LProcessInterface&)> theWork)
        : processor(theProcessor), work(std::move(theWork)) {
        Start(31);
    }
    ~Worker() override {
        while (IsRunning() && !GetFinishedSignal().WaitSignal(LNoTimeLimit)) {
        }
        _StopAndWait();
    }
    void ThreadFunction() override {
        pinTo(processor);
        work(*this);
    }
    const int processor;
    const std::function<void(LProcessInterface&)> work;
};

constexpr std::size_t kMessage = 100;

// Of this process, in us.
double processorTime() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) * 1e-3;
}

// Both ends on one processor, or each on one of its own, as two machines have it.
template <typename Way>
Sample roundTrip(Placement placement) {
    constexpr std::size_t kRounds = 4000;
    needProcessorsFor(placement);
    Connection connection;
    std::vector<double> times;
    const Worker other(placement == Placement::TwoCpus, [&](LProcessInterface& process) {
        const Way way(process, connection.there.GetDescriptor());
        char message[kMessage];
        for (std::size_t i = 0; i < kRounds; ++i)
            if (!receiveAll(way, message, kMessage) || !way.sendAll(message, kMessage))
                return;
    });
    {
        const Worker self(0, [&](LProcessInterface& process) {
            const Way way(process, connection.here.GetDescriptor());
            char message[kMessage] = {};
            for (std::size_t i = 0; i < kRounds; ++i) {
                const auto start = Clock::now();
                if (!way.sendAll(message, kMessage) || !receiveAll(way, message, kMessage))
                    return;
                times.push_back(nanosecondsSince(start) / 1000);
            }
        });
    }
    shutdown(connection.here.GetDescriptor(), SHUT_RDWR); // ends the other end after a failure, too
    need(times.size() == kRounds, "the connection ended");
    return distribution(times);
}

template <typename Way>
Sample stream(Placement placement) {
    constexpr std::size_t kPiece = 64 << 10;
    constexpr std::size_t kWhole = std::size_t{128} << 20;
    needProcessorsFor(placement);
    Connection connection;
    double speed = kUnknown;
    const double usedBefore = processorTime();
    const Worker other(placement == Placement::TwoCpus, [&](LProcessInterface& process) {
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
    need(speed > 0, "the connection ended");
    Sample sample(speed);
    sample.cpu = (processorTime() - usedBefore) / (kWhole / kPiece);
    return sample;
}

using Measure = Sample (*)(Placement);

void addBoth(std::vector<Case>& cases, const std::string& name, const char* unit, Better better,
             Measure blocking, Measure selectFirst, Measure library) {
    for (const auto placement : {Placement::OneCpu, Placement::TwoCpus}) {
        const auto at = [placement](Measure measure) { return [=] { return measure(placement); }; };
        cases.push_back({name + (placement == Placement::OneCpu ? ", one CPU" : ", two CPUs"),
                         unit,
                         better,
                         {{"floor: blocking send and recv", at(blocking)},
                          {"select before each recv", at(selectFirst)},
                          {"ProcessSend, ProcessRecvReady", at(library), Whose::Ours}},
                         {3}});
    }
}

const Register net{[](std::vector<Case>& cases) {
    addBoth(cases, "net/round trip of 100 bytes", "us", Better::Lower, roundTrip<Blocking>,
            roundTrip<SelectFirst>, roundTrip<Library>);
    addBoth(cases, "net/stream in pieces of 64 KiB", "GB/s", Better::Higher, stream<Blocking>,
            stream<SelectFirst>, stream<Library>);
}};

} // namespace
} // namespace bench
