// The kinds of dispatch queue that run on the workers, and the base that they share with the main queue.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include "dispatch/Runnable.h"
#include "dispatch/Task.h"
#include "dispatch/TaskList.h"

#include <atomic>
#include <cstddef>
#include <dispatch/dispatch.h>
#include <mutex>
#include <utility>

struct dispatch_queue_s {
    virtual void append(port::Task task) = 0;
    virtual void suspend() = 0;
    virtual void resume() = 0;
    // Queues that are never released ignore both.
    virtual void retain() noexcept {}
    virtual void release() noexcept {}

protected:
    ~dispatch_queue_s() = default;
};

namespace port {

// Runs its tasks one at a time and in order, on its target queue, or on the workers when that is null. While
// it is in line or runs, it holds a reference to itself.
class SerialQueue : public dispatch_queue_s, private Runnable {
public:
    void append(Task task) final {
        if (add(std::move(task)))
            schedule();
    }
    // The first half of `append`, which calls nobody. True when the queue was at rest: the caller puts a turn
    // of it in line with `schedule`.
    bool add(Task task);
    // The same for the one task that ends what the queue is for: it comes behind all others and takes no memory.
    bool addLast(Task task);
    void schedule(Urgency urgency = Urgency::Now);
    void suspend() final;
    void resume() final;
    // True while it is suspended, and while that many tasks wait.
    bool isHeldBack(std::size_t tasks) const;

protected:
    // `target` is retained; the queue begins with `suspensions` to be resumed.
    explicit SerialQueue(dispatch_queue_t target, unsigned suspensions = 0);
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;
    ~SerialQueue() override;

    // Called without a lock: before the first task of a turn, and when the last task has run.
    virtual void turnBegins() {}
    virtual void turnEnds() {}

private:
    void run() final;
    bool runTasks();
    bool next(Task& task);
    bool hasTask() const { return !tasks_.isEmpty() || last_; }
    bool mustSchedule();

    mutable std::mutex mutex_;
    TaskList tasks_;
    Task last_;
    unsigned suspensions_;
    bool active_ = false; // in line, or running
    dispatch_queue_t target_;
};

// What dispatch_queue_create makes.
class PlainQueue final : public SerialQueue {
public:
    PlainQueue() : SerialQueue(nullptr) {}
    void retain() noexcept override { references_.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept override {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

private:
    ~PlainQueue() override = default;
    std::atomic<int> references_{1};
};

// Runs its tasks on any workers, at the same time.
class GlobalQueue final : public dispatch_queue_s {
public:
    static GlobalQueue& shared();
    void append(Task task) override;
    void suspend() override {}
    void resume() override {}
};

} // namespace port
