// Signals, locks and threads beside the bare calls and the standard library.
#include "Driver.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <thread>
#include <threads/LLockObject.h>
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
        char byte;
        while (read(ends[0], &byte, 1) == 1) {
        }
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
double wakeOther() {
    const Event there;
    const Event back;
    constexpr int kRounds = 3000;
    std::thread other([&] {
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

struct PosixRecursive {
    pthread_mutex_t mutex;
    PosixRecursive() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mutex, &attributes);
    }
    void Lock() { pthread_mutex_lock(&mutex); }
    void Unlock() { pthread_mutex_unlock(&mutex); }
};

struct StandardRecursive {
    std::recursive_mutex mutex;
    void Lock() { mutex.lock(); }
    void Unlock() { mutex.unlock(); }
};

template <typename Lock>
double lockUnlock() {
    Lock lock;
    return nanosecondsPerCall([&] {
        lock.Lock();
        lock.Lock();
        lock.Unlock();
        lock.Unlock();
    });
}

template <typename Lock>
double contended() {
    Lock lock;
    long counter = 0;
    constexpr int kRounds = 400000;
    const auto work = [&] {
        for (int i = 0; i < kRounds; ++i) {
            lock.Lock();
            ++counter;
            lock.Unlock();
        }
    };
    const auto start = Clock::now();
    std::thread other(work);
    work();
    other.join();
    keep(counter);
    return nanosecondsSince(start) / (2 * kRounds);
}

struct EmptyThread : LThread {
    ~EmptyThread() override { _StopAndWait(); }
    void ThreadFunction() override {}
};

double bareThread() {
    return nanosecondsPerCall([] {
               pthread_t thread;
               pthread_create(
                   &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
               pthread_join(thread, nullptr);
           }) /
           1000;
}

double standardThread() {
    return nanosecondsPerCall([] { std::thread([] {}).join(); }) / 1000;
}

double libraryThread() {
    EmptyThread thread;
    return nanosecondsPerCall([&] {
               thread.Start(31);
               thread.GetFinishedSignal().WaitSignal(LNoTimeLimit);
           }) /
           1000;
}

const Register threads{[](std::vector<Case>& cases) {
    cases.push_back({"threads/signal set, wait, reset",
                     "ns",
                     Better::Lower,
                     {{"floor: pipe and select", setWaitReset<BarePipe>},
                      {"eventfd and poll", setWaitReset<EventDescriptor>},
                      {"LSignalObject", setWaitReset<LibrarySignal>}}});
    cases.push_back({"threads/wake a waiting thread",
                     "us",
                     Better::Lower,
                     {{"floor: pipe and select", wakeOther<BarePipe>},
                      {"eventfd and poll", wakeOther<EventDescriptor>},
                      {"LSignalObject", wakeOther<LibrarySignal>}}});
    cases.push_back({"threads/recursive lock and unlock, twice",
                     "ns",
                     Better::Lower,
                     {{"floor: pthread recursive mutex", lockUnlock<PosixRecursive>},
                      {"std::recursive_mutex", lockUnlock<StandardRecursive>},
                      {"LLockObject", lockUnlock<LLockObject>}}});
    cases.push_back({"threads/recursive lock, two threads",
                     "ns",
                     Better::Lower,
                     {{"floor: pthread recursive mutex", contended<PosixRecursive>},
                      {"std::recursive_mutex", contended<StandardRecursive>},
                      {"LLockObject", contended<LLockObject>}}});
    cases.push_back({"threads/start to finish",
                     "us",
                     Better::Lower,
                     {{"floor: pthread create and join", bareThread},
                      {"std::thread", standardThread},
                      {"LThread", libraryThread}}});
}};

} // namespace
} // namespace bench
