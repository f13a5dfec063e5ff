#include "dispatch/Queue.h"

#include "dispatch/WorkerPool.h"

#include <cstdint>
#include <ctime>
#include <utility>

namespace port {
namespace {

// Then the queue goes to the end of the line.
constexpr std::size_t kTasksPerTurn = 64;
constexpr std::int64_t kTurnLength = 5; // ms, by a clock that is cheap and steps every few of them

std::int64_t coarseMilliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

struct SingleTask final : Runnable {
    explicit SingleTask(Task task) : work(std::move(task)) {}
    void run() override {
        work();
        delete this;
    }
    Task work;
};

} // namespace

SerialQueue::SerialQueue(dispatch_queue_t target, unsigned suspensions)
    : suspensions_(suspensions), target_(target) {
    if (target_ != nullptr)
        target_->retain();
}

SerialQueue::~SerialQueue() {
    if (target_ != nullptr)
        target_->release();
}

// The pool is called without the queue's lock, which the worker that comes takes at once. Who orders what it adds by
// a lock of its own calls `add` under that and `schedule` behind it.
bool SerialQueue::add(Task task) {
    const std::lock_guard lock(mutex_);
    tasks_.push(std::move(task));
    return mustSchedule();
}

bool SerialQueue::addLast(Task task) {
    const std::lock_guard lock(mutex_);
    last_ = std::move(task);
    return mustSchedule();
}

void SerialQueue::suspend() {
    const std::lock_guard lock(mutex_);
    ++suspensions_;
}

void SerialQueue::resume() {
    bool starts = false;
    {
        const std::lock_guard lock(mutex_);
        if (suspensions_ != 0)
            --suspensions_;
        starts = mustSchedule();
    }
    if (starts)
        schedule();
}

bool SerialQueue::isHeldBack(std::size_t tasks) const {
    const std::lock_guard lock(mutex_);
    return suspensions_ != 0 || tasks_.size() >= tasks;
}

// Under the lock. True when the queue has to be put in line; it holds its own reference from here on.
bool SerialQueue::mustSchedule() {
    if (active_ || suspensions_ != 0 || !hasTask())
        return false;
    active_ = true;
    retain();
    return true;
}

// Once for each time that `mustSchedule` said so; no two turns of it are in line.
void SerialQueue::schedule(Urgency urgency) {
    if (target_ == nullptr)
        WorkerPool::shared().submit(*this, urgency);
    else
        target_->append(Task([this] { run(); }));
}

// The next task, or the end of the turn.
bool SerialQueue::next(Task& task) {
    const std::lock_guard lock(mutex_);
    if (suspensions_ != 0 || !hasTask()) {
        // Under the same lock as the look: who adds a task from here on puts the queue in line again, and its
        // next turn may begin on another worker while this one still ends.
        active_ = false;
        return false;
    }
    task = tasks_.isEmpty() ? std::move(last_) : tasks_.pop();
    return true;
}

void SerialQueue::run() {
    turnBegins();
    const bool ended = runTasks();
    // On a target queue other tasks follow.
    const WorkerPool::Returning scope(target_ == nullptr);
    // One that has more to do stays active, and keeps its reference.
    if (!ended)
        return schedule();
    turnEnds();
    release();
}

// A turn's worth of them. True when none is left.
bool SerialQueue::runTasks() {
    const std::int64_t start = coarseMilliseconds();
    std::size_t count = 0;
    do {
        Task task;
        if (!next(task))
            return true;
        task();
    } while (++count < kTasksPerTurn && coarseMilliseconds() - start < kTurnLength);
    return false;
}

GlobalQueue& GlobalQueue::shared() {
    static GlobalQueue& queue = *new GlobalQueue;
    return queue;
}

void GlobalQueue::append(Task task) {
    WorkerPool::shared().submit(*new SingleTask(std::move(task)));
}

} // namespace port
