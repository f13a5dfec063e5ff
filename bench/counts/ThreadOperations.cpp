// Threads, signals and the main thread's work.
#include "Operations.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <threads/LProcessEventsHandler.h>
#include <threads/LThread.h>
#include <threads/LThreadRunOnMainThread.h>
#include <unistd.h>

namespace counts {
namespace {

using bench::need;

void lifeOfThread(unsigned times) {
    while (times-- > 0) {
        LThreadOf thread([](LProcessInterface&) {});
        thread.Start(31);
        need(thread.GetFinishedSignal().WaitSignal(LNoTimeLimit), "no thread");
    }
}

void lifeOfBareThread(unsigned times) {
    while (times-- > 0) {
        pthread_t thread;
        need(pthread_create(
                 &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr) == 0,
             "no thread");
        pthread_join(thread, nullptr);
    }
}

void askToStop(unsigned times) {
    LThreadOf thread([times](LProcessInterface& process) {
        for (unsigned i = 0; i < times; ++i)
            bench::keep(process.IsToStop());
    });
    thread.Start(31);
    thread.GetFinishedSignal().WaitSignal(LNoTimeLimit);
}

void setWaitReset(unsigned times) {
    const LSignalObject signal;
    while (times-- > 0) {
        signal.Signal();
        need(signal.WaitSignal(LNoTimeLimit), "the signal is not set");
        signal.Reset();
    }
}

void setWaitResetBare(unsigned times) {
    const int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    while (times-- > 0) {
        pollfd ready{fd, POLLIN, 0};
        eventfd_t value;
        need(eventfd_write(fd, 1) == 0 && poll(&ready, 1, -1) == 1 && eventfd_read(fd, &value) == 0,
             "the event is not set");
    }
    close(fd);
}

unsigned handled = 0; // by the main thread

struct Unit final : LThreadRunOnMainThreadData {
    void MainThreadFunction() override { ++handled; }
};

struct Until final : LProcessEventsHandler {
    explicit Until(unsigned theCount) : count(theCount) {}
    bool IsProcessEventHandlerToStop() const override { return handled >= count; }
    const unsigned count;
};

void post(unsigned times) {
    LThreadRunOnMainThread::Init();
    LThreadRunOnMainThread target;
    for (unsigned i = 0; i < times; ++i)
        need(target.RunOnMainThread(new Unit), "a post was refused");
    Until(times).ProcessWaitForeverAndProcessEvents();
    target.ThreadRunOnMainThreadDestroy();
}

} // namespace

std::vector<Operation> threadOperations() {
    return {
        {"`LThread` made, started, ended", counted(lifeOfThread), counted(lifeOfBareThread)},
        {"`LThread::IsToStop`", counted(askToStop), {}},
        {"`LSignalObject` set, waited for, reset", counted(setWaitReset), counted(setWaitResetBare)},
        {"a post to the main thread, a hundred at a time", counted(post), {}},
    };
}

} // namespace counts
