#include "dispatch/WorkerPool.h"

#include "dispatch/MainLoop.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <pthread.h>
#include <thread>
#include <utility>

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr auto kIdleLife = 10s;      // of a worker without work
constexpr auto kLeaderLife = 12s;    // longer, so that the leader goes last
constexpr auto kNap = 1ms;           // of the leader, in which work that may wait gathers
constexpr unsigned kWorthANap = 4;   // pieces of work that one nap has spared calls for
constexpr auto kMonitorTick = 5ms;   // how long a handler may hold the lead
constexpr unsigned kMaxWorkers = 16; // when handlers block
constexpr std::size_t kEventsPerWait = 32;
constexpr std::size_t kRunsPerInput = 32; // between two looks at new input

thread_local bool returning = false;

// Signals are the main thread's, but for those that a fault of the thread itself raises.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t set;
        sigfillset(&set);
        for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            sigdelset(&set, signal);
        pthread_sigmask(SIG_BLOCK, &set, &before_);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

} // namespace

WorkerPool::Returning::Returning(bool returns) : before_(std::exchange(returning, returns)) {}

WorkerPool::Returning::~Returning() {
    returning = before_;
}

WorkerPool& WorkerPool::shared() {
    static WorkerPool& pool = *new WorkerPool;
    return pool;
}

WorkerPool::WorkerPool() : usualWorkers_(std::max(2U, std::thread::hardware_concurrency())) {
    MainLoop::shared().watchPool(epoll_.fd());
}

unsigned WorkerPool::workerCount() {
    const Lock lock(mutex_);
    return workers_;
}

void WorkerPool::submit(Runnable& work, Urgency urgency) {
    Lock lock(mutex_);
    line_.push(work);
    if (returning)
        return;
    if (urgency == Urgency::Soon) {
        soonCame_ = true;
        ++napCatch_;
        if (leaderNaps_)
            return;
    }
    summon(std::move(lock));
}

void WorkerPool::hurry() {
    Lock lock(mutex_);
    if (!leaderNaps_)
        return;
    napCatch_ += kWorthANap;
    summon(std::move(lock));
}

// Sees to it that a worker comes for what is in line. A leader that has been called already takes it all; if
// it gets stuck, its monitor helps.
void WorkerPool::summon(Lock lock) {
    if (leaderWaits_) {
        if (std::exchange(leaderCalled_, true))
            return;
        lock.unlock();
        epoll_.wake();
    } else if (mayTakeWork() && (parked_ != 0 || monitorRuns_)) {
        lock.unlock();
        parking_.notify_one();
    } else if (workers_ < usualWorkers_) {
        spawn();
    }
}

void WorkerPool::spawn() {
    const BlockedSignals blocked;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    const bool made = pthread_create(&thread, &attributes, threadMain, this) == 0;
    pthread_attr_destroy(&attributes);
    if (made && workers_++ == 0)
        MainLoop::shared().unwatchPool(epoll_.fd());
}

void* WorkerPool::threadMain(void* pool) {
    static_cast<WorkerPool*>(pool)->work();
    return nullptr;
}

void WorkerPool::work() {
    Worker self;
    Lock lock(mutex_);
    std::size_t runs = 0;
    for (;;) {
        if (leader_ == nullptr)
            takeLead(self);
        const bool leads = leader_ == &self;
        if (leads ? !line_.isEmpty() : mayTakeWork()) {
            runOne(self, *line_.pop(), lock);
            if (leader_ == &self && ++runs % kRunsPerInput == 0)
                takeInput(lock);
        } else if (leads ? !lead(lock) : !rest(self, lock)) {
            return;
        }
    }
}

void WorkerPool::takeLead(Worker& self) {
    leader_ = &self;
    ++leaderTurns_;
    if (!line_.isEmpty())
        requestMonitor();
}

void WorkerPool::runOne(Worker& self, Runnable& runnable, Lock& lock) {
    if (leader_ == &self)
        ++leaderTurns_;
    ++running_;
    // The monitor that was called may have come upon work first.
    if (monitorWanted_ && running_ == workers_ && workers_ < kMaxWorkers)
        spawn();
    lock.unlock();
    runnable.run();
    lock.lock();
    --running_;
}

// One wait as the leader. False when the thread has given up its place and must end.
bool WorkerPool::lead(Lock& lock) {
    std::array<epoll_event, kEventsPerWait> events;
    const bool naps = std::exchange(soonCame_, false) && naps_.isWorthATry();
    const std::size_t count = wait(events, naps, lock);
    // A nap in which little gathers only delays it; one that an event ends early says nothing.
    if (naps && (count == 0 || napCatch_ >= kWorthANap))
        naps_.note(napCatch_ == 0 || napCatch_ >= kWorthANap);
    if (count == 0)
        return staysAfterQuiet(naps, lock);
    leaderStays_ = false;
    requestMonitor();
    lock.unlock();
    harvest({events.data(), count});
    lock.lock();
    expireDeadlines(lock);
    return true;
}

// The wait brought no event. False as above.
bool WorkerPool::staysAfterQuiet(bool napped, Lock& lock) {
    if (!line_.isEmpty())
        requestMonitor();
    expireDeadlines(lock);
    if (napped || !line_.isEmpty() || !deadlines_.empty())
        return true;
    leaderStays_ = isNeeded();
    if (leaderStays_ || workers_ > 1)
        return true;
    leave();
    return false;
}

// How many events came.
std::size_t WorkerPool::wait(std::span<epoll_event> events, bool naps, Lock& lock) {
    const int patience = leaderPatience();
    leaderWaits_ = true;
    leaderCalled_ = false;
    leaderNaps_ = naps;
    napCatch_ = 0;
    lock.unlock();
    const std::size_t count = naps ? epoll_.nap(events, kNap) : epoll_.wait(events, patience);
    lock.lock();
    leaderWaits_ = false;
    leaderNaps_ = false;
    ++leaderTurns_;
    return count;
}

// The last worker goes; the main loop watches from now on.
void WorkerPool::leave() {
    leader_ = nullptr;
    --workers_;
    MainLoop::shared().watchPool(epoll_.fd());
}

void WorkerPool::harvest(std::span<const epoll_event> events) {
    const Returning scope;
    for (const epoll_event& event : events) {
        if (Source* const source = SourceTable::shared().pin(event.data.u64)) {
            source->ready(event.events);
            source->unpin();
        }
    }
}

// A look at new input while work is still in line, so that no source waits for the whole line.
void WorkerPool::takeInput(Lock& lock) {
    lock.unlock();
    std::array<epoll_event, kEventsPerWait> events;
    harvest({events.data(), epoll_.wait(events, 0)});
    lock.lock();
    expireDeadlines(lock);
}

int WorkerPool::leaderPatience() const {
    using std::chrono::milliseconds;
    if (deadlines_.empty())
        return leaderStays_ ? -1 : static_cast<int>(milliseconds(kLeaderLife).count());
    const auto first = std::min_element(deadlines_.begin(), deadlines_.end(),
                                        [](const auto& a, const auto& b) { return a.when < b.when; });
    const auto left = std::chrono::ceil<milliseconds>(first->when - Clock::now());
    return static_cast<int>(std::clamp<milliseconds::rep>(left.count(), 0, 60'000));
}

void WorkerPool::callAt(Clock::time_point when, SourceKey key) {
    Lock lock(mutex_);
    deadlines_.push_back({when, key});
    if (!returning)
        summon(std::move(lock)); // whoever comes waits anew, with the right patience
}

void WorkerPool::expireDeadlines(Lock& lock) {
    if (deadlines_.empty())
        return;
    const auto now = Clock::now();
    const auto due = std::partition(deadlines_.begin(), deadlines_.end(),
                                    [now](const Deadline& deadline) { return deadline.when > now; });
    const std::vector<Deadline> expired(due, deadlines_.end());
    deadlines_.erase(due, deadlines_.end());
    if (expired.empty())
        return;
    lock.unlock();
    for (const Deadline& deadline : expired) {
        if (Source* const source = SourceTable::shared().pin(deadline.key)) {
            source->expired();
            source->unpin();
        }
    }
    lock.lock();
}

// The leader is going to run handlers: another worker must see when one of them holds it.
void WorkerPool::requestMonitor() {
    if (monitorRuns_ || monitorWanted_)
        return;
    monitorWanted_ = true;
    if (parked_ != 0)
        parking_.notify_one();
    else if (workers_ < kMaxWorkers)
        spawn();
}

// A worker that has no work and is not the leader. False when it has rested long enough to end.
bool WorkerPool::rest(Worker& self, Lock& lock) {
    if (!monitorRuns_ && (monitorWanted_ || !leaderWaits_)) {
        monitor(self, lock);
        return true;
    }
    ++parked_;
    const bool called = parking_.wait_for(lock, kIdleLife) == std::cv_status::no_timeout;
    --parked_;
    if (called || !line_.isEmpty() || monitorWanted_ || leader_ == nullptr)
        return true;
    --workers_;
    return false;
}

void WorkerPool::monitor(Worker& self, Lock& lock) {
    monitorRuns_ = true;
    monitorWanted_ = false;
    while (!mayTakeWork() && leader_ != nullptr) {
        const std::uint64_t seen = leaderTurns_;
        if (parking_.wait_for(lock, kMonitorTick) == std::cv_status::no_timeout || seen != leaderTurns_)
            continue;
        if (!leaderWaits_)
            takeLead(self);
        break;
    }
    monitorRuns_ = false;
    if (!leaderWaits_)
        requestMonitor(); // this one is going to work
}

bool WorkerPool::mayTakeWork() const {
    return !line_.isEmpty() && running_ < usualWorkers_;
}

void WorkerPool::moveIn(Tenant tenant) {
    ++(tenant == Tenant::Resident ? residents_ : guests_);
    if (!isNeeded())
        return;
    const Lock lock(mutex_);
    if (workers_ == 0)
        spawn();
}

void WorkerPool::moveOut(Tenant tenant) {
    --(tenant == Tenant::Resident ? residents_ : guests_);
}

bool WorkerPool::isNeeded() const {
    return residents_ != 0 || (guests_ != 0 && !MainLoop::shared().isPermanent());
}

void WorkerPool::inputWaits() {
    const Lock lock(mutex_);
    if (workers_ == 0)
        spawn();
}

void WorkerPool::mainLoopIsBusy() {
    if (guests_ != 0)
        shared().inputWaits();
}

} // namespace port
