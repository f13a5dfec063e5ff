// The worker threads. One of them, the leader, waits on the pool's epoll set, reads what is ready and runs the
// handlers itself, so that a request costs no change of threads. While the leader is busy a second worker, the
// monitor, looks every few milliseconds whether it is stuck in a handler, and takes the lead from it if so. Any
// other worker is parked until there is work for it. There is no thread before the first work, and none is left
// some seconds after the last.
//
// Bounds: handlers that last hold one worker each, up to kMaxWorkers. With one less stuck for ever, all other
// work goes on; while every worker is stuck, everything else waits.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include "dispatch/Deadlines.h"
#include "dispatch/LeaderWait.h"
#include "dispatch/Runnable.h"
#include "dispatch/Source.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <span>

namespace port {

class WorkerPool {
public:
    using Clock = Deadlines::Clock;
    static constexpr unsigned kMaxWorkers = 128;

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
    Epoll& epoll() { return wait_.epoll(); }
    // The source's `expired` is called at that time or soon after, once.
    void callAt(Clock::time_point when, SourceKey key);

    // Who looks at the set while nothing happens in it. For some sources a worker always stays; for others the
    // main loop looks when no worker is left, once it runs for good.
    enum class Watcher { Worker, MainLoop };
    void beginWatch(Watcher watcher);
    void endWatch(Watcher watcher);
    // The main loop saw something ready in the set, or tries again. True when a worker comes.
    bool inputWaits();
    // The main loop is about to run code that may last, and cannot look meanwhile.
    static void mainLoopIsBusy();

    // Called each time that the last worker goes, by that worker: when all is quiet.
    static void whenLastLeaves(void (*call)());

    // For tests and reports.
    unsigned workerCount();

private:
    using Lock = std::unique_lock<std::mutex>;
    // What a worker knows of itself; its address tells workers apart.
    struct Worker {
        unsigned runs = 0;  // turns that it ran as the leader
        bool stays = false; // it leads, found nothing for long, yet must not leave
    };
    enum class Monitor {
        None,   // the leader waits, or has not been watched yet
        Called, // a worker was told to come
        Runs,
    };

    WorkerPool();
    static void* threadMain(void* pool);

    // All under the lock, which those with a `lock` give back meanwhile.
    void summon(Lock lock);
    bool spawn();
    void work(Lock& lock);
    bool isForMe(const Worker& self) const;
    void runNext(Worker& self, Lock& lock);
    bool mayTakeWork() const;
    void takeLead(const Worker& self);
    bool lead(Worker& self, Lock& lock);
    bool staysAfterQuiet(Worker& self, bool wasShort, Lock& lock);
    int patience(const Worker& self) const;
    void deliver(std::span<const epoll_event> events, Lock& unlocked);
    void callDue(Lock& lock);
    bool rest(const Worker& self, Lock& lock);
    void callMonitor();
    void bringMonitor();
    void monitor(const Worker& self, Lock& lock);

    std::mutex mutex_;
    std::condition_variable parking_; // where the monitor and the parked wait
    LeaderWait wait_;
    RunList line_;
    Deadlines deadlines_;
    const unsigned usualWorkers_; // that take work while no handler is stuck
    unsigned workers_ = 0;
    unsigned parked_ = 0;
    unsigned running_ = 0; // workers inside a turn
    const Worker* leader_ = nullptr;
    std::uint64_t progress_ = 0; // what the leader has begun or ended; a stuck one makes none
    Monitor monitor_ = Monitor::None;
};

} // namespace port
