#include "dispatch/MainLoop.h"

#include "dispatch/WorkerPool.h"
#include "host/Deadline.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <span>
#include <utility>

namespace port {
namespace {

constexpr std::size_t kTasksPerTurn = 64;
constexpr unsigned kTurnsPerWait = 16; // of tasks alone, then the descriptors have theirs
constexpr std::size_t kEventsPerWait = 32;
constexpr unsigned kPoolRetry = 20; // ms, while no worker can be made
constexpr SourceKey kPoolKey = Epoll::kWakeKey - 1;

class CallbackSource final : public Source {
public:
    explicit CallbackSource(std::function<void()> callback) : callback_(std::move(callback)) {}

    bool pin() noexcept override {
        references_.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    void unpin() noexcept override {
        if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
    SourceResult ready(std::uint32_t /*events*/) override {
        callback_();
        return SourceResult::UserCalled;
    }

private:
    ~CallbackSource() = default;
    std::function<void()> callback_;
    std::atomic<int> references_{1};
};

} // namespace

// On any thread. The eventfd is written only when somebody waits, once for all that is put in line during that
// wait, and without the lock, which the woken thread takes first.
void MainQueue::append(Task task) {
    bool call = false;
    {
        const std::lock_guard lock(mutex_);
        tasks_.push(std::move(task));
        call = waiters_ != 0 && !std::exchange(called_, true);
    }
    if (call)
        MainLoop::shared().epoll_.wake();
}

void MainQueue::suspend() {
    const std::lock_guard lock(mutex_);
    ++suspensions_;
}

// The loop is called even if nobody waits: that is rare, and costs one empty turn.
void MainQueue::resume() {
    {
        const std::lock_guard lock(mutex_);
        if (suspensions_ != 0)
            --suspensions_;
    }
    MainLoop::shared().epoll_.wake();
}

bool MainQueue::wantsTurn() const {
    return !running_ && suspensions_ == 0 && !tasks_.isEmpty();
}

// `running_` stays until the task is through: a loop entered from inside it finds nothing to run.
bool MainQueue::next(Task& task) {
    const std::lock_guard lock(mutex_);
    if (!wantsTurn())
        return false;
    task = tasks_.pop();
    running_ = true;
    return true;
}

bool MainQueue::runTurn() {
    Task task;
    std::size_t count = 0;
    for (; count < kTasksPerTurn && next(task); ++count) {
        // This thread cannot look at the workers' set while it is in the program's code: a worker has to.
        if (count == 0)
            WorkerPool::mainLoopIsBusy();
        task();
        // What the task holds goes before the next one may run: its destructors are part of the turn.
        task.reset();
        const std::lock_guard lock(mutex_);
        running_ = false;
    }
    return count != 0;
}

// Look and announcement under one lock: a task is either seen here, or its sender sees the waiter.
bool MainQueue::beginWait() {
    const std::lock_guard lock(mutex_);
    if (wantsTurn())
        return false;
    ++waiters_;
    called_ = false;
    return true;
}

void MainQueue::endWait() {
    const std::lock_guard lock(mutex_);
    --waiters_;
}

MainLoop& MainLoop::shared() {
    static MainLoop& loop = *new MainLoop;
    return loop;
}

void MainLoop::wake() {
    wakeAsked_ = true;
    epoll_.wake();
}

// The queue comes before and behind the wait: what a source puts in line, a reply for one, runs in the same
// turn.
bool MainLoop::runOnce(int milliseconds) {
    const Deadline deadline =
        milliseconds < 0 ? Deadline(Deadline::kForever) : Deadline(std::chrono::milliseconds(milliseconds));
    for (;;) {
        const bool ran = queue_.runTurn();
        if (ran && ++turnsWithoutWait_ < kTurnsPerWait)
            return true;
        turnsWithoutWait_ = 0;
        const int left = ran || wakeAsked_ ? 0 : deadline.milliseconds();
        bool handled = serve(left);
        handled |= queue_.runTurn();
        if (ran || handled)
            return true;
        if (wakeAsked_.exchange(false) || left == 0)
            return false;
    }
}

void MainLoop::runTurn() {
    const EventServer serveEvents = eventServer_;
    runOnce(serveEvents != nullptr && serveEvents() ? 0 : -1);
}

// One wait and what it brought.
bool MainLoop::serve(int milliseconds) {
    // Before the wait: whoever sets it later wakes that, and the next turn sees it.
    const bool poolCalls = poolCalls_;
    const bool mayWait = milliseconds != 0 && queue_.beginWait();
    if (poolCalls && static_cast<unsigned>(milliseconds) > kPoolRetry) // no limit is above it too
        milliseconds = kPoolRetry;
    std::array<epoll_event, kEventsPerWait> events;
    bool handled = false;
    std::size_t count = 0;
    do {
        count = epoll_.wait(events, mayWait && count == 0 ? milliseconds : 0);
        // Before the sources are told: what they put in line on this thread need not wake it.
        if (mayWait && count != kEventsPerWait)
            queue_.endWait();
        for (const epoll_event& event : std::span(events.data(), count))
            handled |= deliver(event);
    } while (count == kEventsPerWait); // nothing that was ready may stay behind unseen
    if (poolCalls && WorkerPool::shared().inputWaits())
        poolCalls_ = false;
    return handled;
}

// On the thread inside the loop, without a lock. The watch of the pool is spent with its event; where no worker
// can be made, callPoolAgain has the loop ask anew.
bool MainLoop::deliver(const epoll_event& event) {
    if (event.data.u64 == kPoolKey) {
        WorkerPool::shared().inputWaits();
        return false;
    }
    Source* const source = SourceTable::shared().pin(event.data.u64);
    if (source == nullptr)
        return false;
    const bool called = source->ready(event.events) == SourceResult::UserCalled;
    source->unpin();
    return called;
}

// The source is in the table before the kernel knows its key, so that no event finds nobody.
bool MainLoop::addSource(int fd, std::function<void()> callback) {
    auto* const source = new CallbackSource(std::move(callback));
    const SourceKey key = SourceTable::shared().add(*source);
    if (epoll_.add(fd, EPOLLIN, key))
        return true;
    SourceTable::shared().remove(key);
    source->unpin();
    return false;
}

// The watch ends where the first worker begins, so that input for the workers costs the main thread nothing.
bool MainLoop::watchPool(int fd) {
    return epoll_.add(fd, EPOLLIN | EPOLLONESHOT, kPoolKey) || errno == EEXIST;
}

void MainLoop::unwatchPool(int fd) {
    epoll_.remove(fd);
}

// The flag stays until a worker is there, so one call wakes the loop, however often it fails.
void MainLoop::callPoolAgain() {
    if (!poolCalls_.exchange(true))
        epoll_.wake();
}

} // namespace port
