// Work posted to the main thread and handled there, beside a bare queue and GLib's idle sources.
#include "Driver.h"
#include "Processes.h"

#include <cstdint>
#include <deque>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <threads/LProcessEventsHandler.h>
#include <threads/LThreadRunOnMainThread.h>
#include <unistd.h>

#ifdef BENCH_HAVE_GLIB
#include <glib.h>
#endif

namespace bench {
namespace {

int handled = 0; // by the main thread

// What such a queue costs at least: no unit of work on the heap, no kinds of events, nothing can be taken back.
class BareQueue {
public:
    ~BareQueue() { close(fd); }
    void post() {
        bool wakes = false;
        {
            const std::lock_guard lock(mutex);
            wakes = works.empty();
            works.push_back({[](void* counter) { ++*static_cast<int*>(counter); }, &handled});
        }
        if (wakes)
            keep(eventfd_write(fd, 1));
    }
    void handleUntil(int count) {
        while (handled < count) {
            Work work{};
            if (take(work)) {
                work.function(work.argument);
                continue;
            }
            pollfd ready{fd, POLLIN, 0};
            keep(poll(&ready, 1, -1));
            std::uint64_t value;
            keep(eventfd_read(fd, &value));
        }
    }

private:
    struct Work {
        void (*function)(void*);
        void* argument;
    };
    bool take(Work& work) {
        const std::lock_guard lock(mutex);
        if (works.empty())
            return false;
        work = works.front();
        works.pop_front();
        return true;
    }

    std::mutex mutex;
    std::deque<Work> works;
    int fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
};

#ifdef BENCH_HAVE_GLIB
class IdleSources {
public:
    static void post() {
        g_idle_add(
            [](void* counter) -> gboolean {
                ++*static_cast<int*>(counter);
                return G_SOURCE_REMOVE;
            },
            &handled);
    }
    static void handleUntil(int count) {
        while (handled < count)
            g_main_context_iteration(nullptr, TRUE);
    }
};
#endif

class MainThreadTarget {
public:
    MainThreadTarget() { LThreadRunOnMainThread::Init(); }
    ~MainThreadTarget() { target.ThreadRunOnMainThreadDestroy(); }
    void post() { target.RunOnMainThread(new Work); }
    static void handleUntil(int count) { Until(count).ProcessWaitForeverAndProcessEvents(); }

private:
    struct Work final : LThreadRunOnMainThreadData {
        void MainThreadFunction() override { ++handled; }
    };
    struct Until final : LProcessEventsHandler {
        explicit Until(int number) : count(number) {}
        bool IsProcessEventHandlerToStop() const override { return handled >= count; }
        const int count;
    };
    LThreadRunOnMainThread target;
};

template <typename Queue>
double fromAnotherThread() {
    constexpr int kCount = 100000;
    Queue queue;
    handled = 0;
    const auto start = Clock::now();
    std::thread poster([&queue] {
        for (int i = 0; i < kCount; ++i)
            queue.post();
    });
    queue.handleUntil(kCount);
    const double spent = nanosecondsSince(start);
    poster.join();
    return spent / kCount;
}

template <typename Queue>
double inBatches() {
    constexpr int kBatch = 100;
    Queue queue;
    return nanosecondsPerCall([&queue] {
               handled = 0;
               for (int i = 0; i < kBatch; ++i)
                   queue.post();
               queue.handleUntil(kBatch);
           }) /
           kBatch;
}

// The library's main loop stays in the process that has brought it up.
template <double (*kMeasure)()>
Sample alone() {
    return measureAlone(kMeasure);
}

const Register mainThread{[](std::vector<Case>& cases) {
    cases.push_back({"mainthread/post from another thread and handle",
                     "ns",
                     Better::Lower,
                     {{"floor: mutex, deque, eventfd", alone<fromAnotherThread<BareQueue>>},
#ifdef BENCH_HAVE_GLIB
                      {"g_idle_add", alone<fromAnotherThread<IdleSources>>},
#endif
                      {"LThreadRunOnMainThread", alone<fromAnotherThread<MainThreadTarget>>, Whose::Ours}}});
    cases.push_back({"mainthread/post and handle, a hundred at a time",
                     "ns",
                     Better::Lower,
                     {{"floor: mutex, deque, eventfd", alone<inBatches<BareQueue>>},
#ifdef BENCH_HAVE_GLIB
                      {"g_idle_add", alone<inBatches<IdleSources>>},
#endif
                      {"LThreadRunOnMainThread", alone<inBatches<MainThreadTarget>>, Whose::Ours}}});
}};

} // namespace
} // namespace bench
