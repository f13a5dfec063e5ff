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
