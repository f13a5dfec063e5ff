// Signals and threads beside the bare calls and the standard library.
#include "Driver.h"
#include "Processes.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <thread>
#include <threads/LSignalObject.h>
#include <threads/LThread.h>
#include <unistd.h>

namespace bench {
namespace {

// A pipe and select, used directly.
struct BarePipe {
    int ends[2];
    BarePipe() {
        if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
            ends[0] = ends[1] = -1;
    }
    ~BarePipe() {
        close(ends[0]);
        close(ends[1]);
    }
    void set() const {
        const char byte = 1;
        keep(write(ends[1], &byte, 1));
    }
    void wait() const {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(ends[0], &ready);
        keep(select(ends[0] + 1, &ready, nullptr, nullptr, nullptr));
    }
    void reset() const {
        char bytes[8]; // more than are there: one call says that it is empty
        keep(read(ends[0], bytes, sizeof bytes));
    }
};

struct EventDescriptor {
    int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    ~EventDescriptor() { close(fd); }
    void set() const { keep(eventfd_write(fd, 1)); }
    void wait() const {
        pollfd ready{fd, POLLIN, 0};
        keep(poll(&ready, 1, -1));
    }
    void reset() const {
        eventfd_t value;
        keep(eventfd_read(fd, &value));
    }
};

struct LibrarySignal {
    LSignalObject signal;
    void set() const { signal.Signal(); }
    void wait() const { signal.WaitSignal(LNoTimeLimit); }
    void reset() const { signal.Reset(); }
};

template <typename Event>
double setWaitReset() {
    const Event event;
    return nanosecondsPerCall([&] {
        event.set();
        event.wait();
        event.reset();
    });
}

// Two threads wake one another in turn; half of a round, in microseconds.
template <typename Event>
double wakeOther(Placement placement) {
    needProcessorsFor(placement);
    const Pinned here(0);
    const Event there;
    const Event back;
    constexpr int kRounds = 3000;
    std::thread other([&] {
        pinTo(placement == Placement::TwoCpus);
        for (int i = 0; i < kRounds; ++i) {
            there.wait();
            there.reset();
            back.set();
        }
    });
    const auto start = Clock::now();
    for (int i = 0; i < kRounds; ++i) {
        there.set();
        back.wait();
        back.reset();
    }
    const double spent = nanosecondsSince(start);
    other.join();
    return spent / kRounds / 2 / 1000;
}

struct EmptyThread : LThread {
    ~EmptyThread() override { _StopAndWait(); }
    void ThreadFunction() override {}
};

// As users have it: made, started, waited for and gone.
double bareThread() {
    return nanosecondsPerCall([] {
               pthread_t thread;
               need(pthread_create(
                        &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr) == 0,
                    "no thread");
               pthread_join(thread, nullptr);
           }) /
           1000;
}

double standardThread() {
    return nanosecondsPerCall([] { std::thread([] {}).join(); }) / 1000;
}

double libraryThread() {
    return nanosecondsPerCall([] {
               EmptyThread thread;
               thread.Start(31);
               need(thread.GetFinishedSignal().WaitSignal(LNoTimeLimit), "no thread");
           }) /
           1000;
}

const Register threads{[](std::vector<Case>& cases) {
    cases.push_back({"threads/signal set, wait, reset",
                     "ns",
                     Better::Lower,
                     {{"floor: pipe and select", setWaitReset<BarePipe>},
                      {"eventfd and poll", setWaitReset<EventDescriptor>},
                      {"LSignalObject", setWaitReset<LibrarySignal>, Whose::Ours}}});
    for (const auto placement : {Placement::OneCpu, Placement::TwoCpus})
        cases.push_back(
            {placement == Placement::OneCpu ? "threads/wake a waiting thread, one CPU"
                                            : "threads/wake a waiting thread, two CPUs",
             "us",
             Better::Lower,
             {{"floor: pipe and select", [=] { return wakeOther<BarePipe>(placement); }},
              {"eventfd and poll", [=] { return wakeOther<EventDescriptor>(placement); }},
              {"LSignalObject", [=] { return wakeOther<LibrarySignal>(placement); }, Whose::Ours}}});
    cases.push_back({"threads/made, started, ended",
                     "us",
                     Better::Lower,
                     {{"floor: pthread create and join", bareThread},
                      {"std::thread", standardThread},
                      {"LThread", libraryThread, Whose::Ours}}});
}};

} // namespace
} // namespace bench
