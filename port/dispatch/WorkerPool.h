// The worker threads. One of them, the leader, waits on the pool's epoll set, reads what is ready and runs
// the handlers itself, so that a request costs no change of threads. While the leader is busy a second
// worker looks, every few milliseconds, whether it is stuck in a handler, and takes the lead from it if so.
// There is no thread before the first work, and none is left some seconds after the last.
//
// A habit spares system calls; it is given up for a while when it is of no use. After work that may come soon
// the leader naps, and looks at the line uncalled when it wakes.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include "dispatch/Epoll.h"
#include "dispatch/Runnable.h"
#include "dispatch/Source.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace port {

class WorkerPool {
public:
    using Clock = std::chrono::steady_clock;

    static WorkerPool& shared();

    // Puts the work at the end of the line and sees to it that a worker comes.
    void submit(Runnable& work, Urgency urgency = Urgency::Now);
    // Work that was to come soon is to come now, if it has not yet.
    void hurry();
    // While it exists, the calling worker runs no user code and then goes straight back to the line: what it
    // puts there calls nobody.
    class Returning {
    public:
        explicit Returning(bool returns = true);
        Returning(const Returning&) = delete;
        Returning& operator=(const Returning&) = delete;
        ~Returning();

    private:
        const bool before_;
    };
    // The set that the leader waits on: sources whose events are read by workers.
    Epoll& epoll() { return epoll_; }
    // The source's `expired` is called at that time or soon after, once.
    void callAt(Clock::time_point when, SourceKey key);

    // What must be watched and by whom. Somebody always watches for a Resident. For a Guest the main loop does
    // while no worker exists, once it runs for good.
    enum class Tenant { Resident, Guest };
    void moveIn(Tenant tenant);
    void moveOut(Tenant tenant);

    // The main loop saw something ready in the set.
    void inputWaits();
    // The main loop is about to run code that may last, and cannot watch meanwhile.
    static void mainLoopIsBusy();
    // For tests and reports.
    unsigned workerCount();

private:
    struct Worker {}; // its address tells workers apart
    using Lock = std::unique_lock<std::mutex>;
    struct Deadline {
        Clock::time_point when;
        SourceKey key;
    };

    // Something that is tried less and less while it is of no use.
    class Habit {
    public:
        bool isWorthATry() { return toSkip_ == 0 || toSkip_-- == 0; }
        void note(bool useful) {
            toSkip_ = useful ? 0 : afterwards_;
            afterwards_ = useful ? 1 : std::min(2 * afterwards_, kMostSkipped);
        }

    private:
        static constexpr unsigned kMostSkipped = 256;
        unsigned toSkip_ = 0;
        unsigned afterwards_ = 1;
    };

    WorkerPool();
    static void* threadMain(void* pool);
    void work();
    void runOne(Worker& self, Runnable& runnable, Lock& lock);
    void takeLead(Worker& self);
    bool lead(Lock& lock);
    bool staysAfterQuiet(bool napped, Lock& lock);
    bool rest(Worker& self, Lock& lock);
    void monitor(Worker& self, Lock& lock);
    bool mayTakeWork() const;
    void requestMonitor();
    void harvest(std::span<const epoll_event> events);
    void takeInput(Lock& lock);
    void expireDeadlines(Lock& lock);
    int leaderPatience() const;
    void leave();
    std::size_t wait(std::span<epoll_event> events, bool naps, Lock& lock);
    void summon(Lock lock);
    void spawn();
    bool isNeeded() const;

    Epoll epoll_;
    std::mutex mutex_;
    std::condition_variable parking_;
    RunList line_;
    std::vector<Deadline> deadlines_;
    const unsigned usualWorkers_;
    unsigned workers_ = 0;
    unsigned parked_ = 0;
    unsigned running_ = 0; // workers inside a turn
    Worker* leader_ = nullptr;
    bool leaderWaits_ = false; // in the kernel, with no work
    bool leaderCalled_ = false;
    bool leaderNaps_ = false; // it looks at the line soon, uncalled
    bool soonCame_ = false;   // work that may wait, since the last nap began
    unsigned napCatch_ = 0;   // how much of it came during the nap
    Habit naps_;
    bool leaderStays_ = false; // it found no work for long, yet must not leave
    std::uint64_t leaderTurns_ = 0;
    bool monitorRuns_ = false;
    bool monitorWanted_ = false;
    std::atomic<unsigned> residents_{0};
    static inline constinit std::atomic<unsigned> guests_{0}; // asked before there is a pool
};

} // namespace port
