#include "dispatch/WorkerPool.h"

#include "dispatch/MainLoop.h"
#include "host/DetachedThread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <new>
#include <port/no_memory.h>
#include <thread>
#include <utility>
#include <vector>

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr auto kIdleLife = 3s;        // of a parked worker
constexpr int kLeaderLife = 4'000;    // ms without work; longer, so that the leader goes last
constexpr auto kMonitorTick = 5ms;    // how long a handler may hold the lead
constexpr unsigned kRunsPerLook = 32; // between two looks at new input
constexpr std::size_t kEventsPerWait = 32;

// Of the thread, so that whatever it calls, however deep, finds it without being told.
thread_local bool returning = false;

// How many sources are watched, by whom; asked before there is a pool.
constinit std::atomic<unsigned> watchedByWorker{0};
constinit std::atomic<unsigned> watchedByMainLoop{0};

constinit std::atomic<void (*)()> lastCall{nullptr};

std::atomic<unsigned>& watchedBy(WorkerPool::Watcher watcher) {
    return watcher == WorkerPool::Watcher::Worker ? watchedByWorker : watchedByMainLoop;
}

bool isWorkerNeeded() {
    return watchedByWorker != 0 || (watchedByMainLoop != 0 && !MainLoop::shared().isPermanent());
}

} // namespace

WorkerPool::Returning::Returning(bool returns) : before_(std::exchange(returning, returns)) {}

WorkerPool::Returning::~Returning() {
    returning = before_;
}

// Never destroyed: workers are inside of it when the process exits on another thread.
WorkerPool& WorkerPool::shared() {
    static WorkerPool& pool = *new WorkerPool;
    return pool;
}

WorkerPool::WorkerPool() : usualWorkers_(std::max(2U, std::thread::hardware_concurrency())) {
    // There is no worker yet; the first one takes the set out of the main loop again.
    MainLoop::shared().watchPool(epoll().fd());
}

unsigned WorkerPool::workerCount() {
    const Lock lock(mutex_);
    return workers_;
}

// On any thread, at times with a connection's lock held: so the pool calls no source and no work under its own.
// For work that may come soon a short wait is let run out; its worker then looks at the line.
void WorkerPool::submit(Runnable& work, Urgency urgency) {
    Lock lock(mutex_);
    line_.push(work);
    if (returning)
        return;
    if (urgency == Urgency::Soon) {
        wait_.makeNextShort();
        if (wait_.isShort())
            return;
    }
    summon(std::move(lock));
}

void WorkerPool::hurry() {
    Lock lock(mutex_);
    if (wait_.isShort())
        summon(std::move(lock));
}

void WorkerPool::callAt(Clock::time_point when, SourceKey key) {
    Lock lock(mutex_);
    deadlines_.add(when, key);
    // Whoever comes waits anew, with the right patience. A leader that returns does; a worker that was slow enough to
    // lose the lead, or never had it, does not, and another one may be in the wait already.
    if (!returning || wait_.isOn())
        summon(std::move(lock));
}

// Sees to it that a worker comes for what is in line. A leader that waits takes it all; if it gets stuck, its
// monitor helps. One that works comes back to the line by itself.
void WorkerPool::summon(Lock lock) {
    if (wait_.isOn()) {
        if (!wait_.end())
            return;
        lock.unlock(); // the worker that is called takes it first
        epoll().wake();
    } else if (mayTakeWork() && (parked_ != 0 || monitor_ == Monitor::Runs)) {
        lock.unlock();
        parking_.notify_one();
    } else if (workers_ < usualWorkers_) {
        spawn();
    }
}

// Where there is a worker already, the work waits for it. Else nobody would come before somebody asks again.
bool WorkerPool::spawn() {
    const bool made = startDetachedThread(threadMain, this);
    if (made && workers_++ == 0)
        MainLoop::shared().unwatchPool(epoll().fd());
    else if (!made && workers_ == 0)
        MainLoop::shared().callPoolAgain();
    return made;
}

// `isLast` is read under the lock under which this worker left the count. The call comes without it: it may
// last, and a new worker may be at work by then.
void* WorkerPool::threadMain(void* pool) {
    auto& self = *static_cast<WorkerPool*>(pool);
    try {
        Lock lock(self.mutex_);
        self.work(lock);
        const bool isLast = self.workers_ == 0;
        lock.unlock();
        if (const auto call = lastCall.load(); isLast && call != nullptr)
            call();
    } catch (const std::bad_alloc&) {
        port_end_without_memory();
    }
    return nullptr;
}

void WorkerPool::whenLastLeaves(void (*call)()) {
    lastCall = call;
}

// The life of a worker: it leads, or takes work that the leader has no time for, or parks.
void WorkerPool::work(Lock& lock) {
    Worker self;
    bool stays = true;
    while (stays) {
        if (leader_ == nullptr)
            takeLead(self);
        if (isForMe(self))
            runNext(self, lock);
        else
            stays = leader_ == &self ? lead(self, lock) : rest(self, lock);
    }
    --workers_;
}

bool WorkerPool::isForMe(const Worker& self) const {
    return leader_ == &self ? !line_.isEmpty() : mayTakeWork();
}

// Only the leader goes on when the usual number of workers is inside of handlers; stuck ones count among them.
bool WorkerPool::mayTakeWork() const {
    return !line_.isEmpty() && running_ < usualWorkers_;
}

// A leader that was stuck finds out when its turn is over.
void WorkerPool::takeLead(const Worker& self) {
    leader_ = &self;
    ++progress_;
    if (!line_.isEmpty())
        callMonitor();
}

// One turn of what is first in line. Now and then the leader looks at new input behind it, so that no source
// waits for the whole line.
void WorkerPool::runNext(Worker& self, Lock& lock) {
    Runnable& work = *line_.pop();
    if (leader_ == &self)
        ++progress_;
    ++running_;
    // The one that was called to monitor may have come upon work first.
    if (monitor_ == Monitor::Called && running_ + parked_ == workers_)
        bringMonitor();
    lock.unlock();
    work.run();
    lock.lock();
    --running_;
    if (leader_ == &self && ++self.runs % kRunsPerLook == 0) {
        std::array<epoll_event, kEventsPerWait> events;
        const std::size_t count = wait_.look(events, lock);
        lock.unlock();
        deliver({events.data(), count}, lock);
        callDue(lock);
    }
}

// One wait as the leader. False when the thread has given up the lead and must end.
bool WorkerPool::lead(Worker& self, Lock& lock) {
    std::array<epoll_event, kEventsPerWait> events;
    // Without the lock: here the leader sleeps, until input, the time of a deadline, or `summon`.
    const auto [count, wasShort] = wait_.wait(events, patience(self), lock);
    ++progress_;
    if (count == 0)
        return staysAfterQuiet(self, wasShort, lock);
    self.stays = false;
    // One that is parked is called without the lock, upon which it would only sleep again.
    const bool callsParked = monitor_ == Monitor::None && parked_ != 0;
    if (callsParked)
        monitor_ = Monitor::Called;
    else
        callMonitor();
    lock.unlock();
    if (callsParked)
        parking_.notify_one();
    deliver({events.data(), count}, lock);
    callDue(lock);
    return true;
}

// The wait brought no event. False as above: then the main loop looks at the set from now on. From the last look
// at the line until this worker is off the count the lock is held: what is submitted before is seen here, and who
// comes later finds no worker and makes one. Input that is there by then calls the main loop at once.
bool WorkerPool::staysAfterQuiet(Worker& self, bool wasShort, Lock& lock) {
    callDue(lock); // which may put the first work in line
    if (!line_.isEmpty())
        callMonitor();
    if (wasShort || !line_.isEmpty() || !deadlines_.isEmpty())
        return true;
    self.stays = isWorkerNeeded();
    if (self.stays || workers_ > 1 || !MainLoop::shared().watchPool(epoll().fd()))
        return true;
    leader_ = nullptr;
    return false;
}

int WorkerPool::patience(const Worker& self) const {
    if (!deadlines_.isEmpty())
        return deadlines_.millisecondsLeft(Clock::now());
    return self.stays ? -1 : kLeaderLife;
}

// Tells the sources what is ready: they read, and put what they have read in line. Who does it may have lost the
// lead meanwhile, so two threads may tell a source at the same time. Comes without the lock and leaves with it.
void WorkerPool::deliver(std::span<const epoll_event> events, Lock& unlocked) {
    bool moreIsNear = false;
    const Returning scope;
    for (const epoll_event& event : events) {
        if (Source* const source = SourceTable::shared().pin(event.data.u64)) {
            moreIsNear |= source->ready(event.events) == SourceResult::MoreIsNear;
            source->unpin();
        }
    }
    unlocked.lock();
    if (moreIsNear)
        wait_.makeNextAwake();
}

// Taken out under the lock, so that no other worker calls them too; called without it, for a source takes its own
// lock, under which others submit. One that is gone by then is not found under its key.
void WorkerPool::callDue(Lock& lock) {
    if (deadlines_.isEmpty())
        return;
    const std::vector<SourceKey> due = deadlines_.takeDue(Clock::now());
    lock.unlock();
    const Returning scope;
    for (const SourceKey key : due) {
        if (Source* const source = SourceTable::shared().pin(key)) {
            source->expired();
            source->unpin();
        }
    }
    lock.lock();
}

// A worker that is not the leader and may take no work. False when it has rested long enough to end. Work that
// it put in line uncalled may have found a leader who waits: this one led when it began, and lost the lead.
bool WorkerPool::rest(const Worker& self, Lock& lock) {
    if (!line_.isEmpty() && wait_.end())
        epoll().wake();
    if (monitor_ == Monitor::Called || (monitor_ == Monitor::None && !wait_.isOn())) {
        monitor(self, lock);
        return true;
    }
    ++parked_;
    // One call may meet the end of the time: then the line, or the missing monitor, tells that it was meant.
    const bool called = parking_.wait_for(lock, kIdleLife) == std::cv_status::no_timeout;
    --parked_;
    return called || !line_.isEmpty() || monitor_ == Monitor::Called;
}

// The leader is going to run handlers: another worker must see when one of them holds it.
void WorkerPool::callMonitor() {
    if (monitor_ != Monitor::None)
        return;
    monitor_ = Monitor::Called;
    bringMonitor();
}

// Nobody comes while all kMaxWorkers are in handlers: then the first one that is through monitors, in `rest`.
void WorkerPool::bringMonitor() {
    if (parked_ != 0)
        parking_.notify_one();
    else if (workers_ < kMaxWorkers && !spawn())
        monitor_ = Monitor::None; // the next call may find room for one
}

// Until the leader waits, or is stuck and this worker leads, or there is work for it.
// It shares `parking_` with the parked: a call that reaches it instead of one of them makes it work, and it
// calls the next monitor as it goes. Progress within a tick means that the leader is not stuck. Who finds it waiting
// goes: where requests are few, no second look is spent on each, and where they are many the leader calls again.
void WorkerPool::monitor(const Worker& self, Lock& lock) {
    monitor_ = Monitor::Runs;
    while (!mayTakeWork()) {
        const std::uint64_t seen = progress_;
        if (parking_.wait_for(lock, kMonitorTick) == std::cv_status::no_timeout)
            continue;
        if (wait_.isOn())
            break;
        if (seen != progress_)
            continue;
        takeLead(self);
        break;
    }
    monitor_ = Monitor::None;
    if (!wait_.isOn())
        callMonitor(); // this one is going to work
}

// The count comes first: a leader that looks at it later stays, and one that left without is off the other count
// when the lock is had here.
void WorkerPool::beginWatch(Watcher watcher) {
    ++watchedBy(watcher);
    const bool isNeeded = isWorkerNeeded();
    const Lock lock(mutex_);
    if (workers_ == 0 && (isNeeded || !MainLoop::shared().watchPool(epoll().fd())))
        spawn();
}

void WorkerPool::endWatch(Watcher watcher) {
    --watchedBy(watcher);
}

bool WorkerPool::inputWaits() {
    const Lock lock(mutex_);
    return workers_ != 0 || spawn();
}

void WorkerPool::mainLoopIsBusy() {
    if (watchedByMainLoop != 0)
        shared().inputWaits();
}

} // namespace port
