// The main thread's one wait: the main queue, the descriptors that belong to the main loop, and the workers'
// set while no worker exists. `dispatch_main`, the application's run loop, the waits for events and
// `port_main_queue_drain` are doors into it; the thread that is inside serves the main queue.
//
// Thread-safety: every function may be called from any thread. Callbacks run on the thread inside the loop.
#pragma once

#include "dispatch/Epoll.h"
#include "dispatch/Queue.h"
#include "dispatch/Source.h"
#include "dispatch/TaskList.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

namespace port {

// The main queue. One task at a time: a loop that is entered from inside a task runs no other.
class MainQueue final : public dispatch_queue_s {
public:
    void append(Task task) override;
    void suspend() override;
    void resume() override;

private:
    friend class MainLoop;

    bool runTurn();
    bool next(Task& task);
    bool wantsTurn() const;
    // False when there is work to do instead.
    bool beginWait();
    void endWait();

    std::mutex mutex_;
    TaskList tasks_;
    unsigned suspensions_ = 0;
    unsigned waiters_ = 0;
    bool called_ = false;
    bool running_ = false;
};

class MainLoop {
public:
    static MainLoop& shared();

    MainQueue& queue() { return queue_; }
    // Serves until something was handled (a task of the main queue, a callback), or `milliseconds` have passed
    // (-1: no limit, 0: what is ready now), or `wake` was called. True when something was handled.
    bool runOnce(int milliseconds);
    // Ends the wait of `runOnce` that runs, or the next one.
    void wake();
    // A turn of the application's own loop: what the event queue brings, and `runOnce` without a limit.
    void runTurn();
    // Hands queued events to their handlers; true when there are more. It leaves nothing behind that does not
    // `wake` the loop. A program without events has none.
    using EventServer = bool (*)();
    void setEventServer(EventServer server) { eventServer_ = server; }
    // The calling thread serves the loop from now on, for the life of the process.
    void becomePermanent() { permanent_ = true; }
    bool isPermanent() const { return permanent_; }

    // The callback runs whenever the descriptor is readable, for the life of the process; the descriptor stays
    // the caller's. False with errno when the kernel refuses.
    bool addSource(int fd, std::function<void()> callback);

    // For sources that read and deliver by themselves.
    Epoll& epoll() { return epoll_; }
    // The workers' set, while there is no worker. False with errno when the kernel refuses.
    bool watchPool(int fd);
    void unwatchPool(int fd);
    // No worker could be made: the pool is asked again in a moment, by the thread that serves.
    void callPoolAgain();

private:
    MainLoop() = default;
    friend class MainQueue;
    bool serve(int milliseconds);
    static bool deliver(const epoll_event& event);

    Epoll epoll_;
    MainQueue queue_;
    std::atomic<bool> permanent_{false};
    std::atomic<bool> wakeAsked_{false};
    std::atomic<unsigned> turnsWithoutWait_{0};
    std::atomic<EventServer> eventServer_{nullptr};
    std::atomic<bool> poolCalls_{false};
};

} // namespace port
