#include "dispatch/LeaderWait.h"

#include <chrono>
#include <sched.h>
#include <utility>

namespace port {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kShortWait = 1; // ms
constexpr std::chrono::microseconds kAwake{150};

} // namespace

// The state is set before the lock goes: who puts work in line from then on sees a wait and ends it, even if
// the kernel has not been entered yet, for the eventfd keeps the call. A call that comes after the wait is over
// ends the next one for nothing.
LeaderWait::Result LeaderWait::wait(std::span<epoll_event> events, int milliseconds, Lock& lock) {
    const bool isShort = std::exchange(nextIsShort_, false);
    state_ = isShort ? State::Short : State::Long;
    const bool isAwake = std::exchange(nextIsAwake_, false);
    lock.unlock();
    std::size_t count = isAwake ? waitAwake(events) : 0;
    if (count == 0)
        count = epoll_.wait(events, isShort ? kShortWait : milliseconds);
    lock.lock();
    state_ = State::Off;
    return {count, isShort};
}

// Whoever else has work for this processor goes first; it may be the sender.
std::size_t LeaderWait::waitAwake(std::span<epoll_event> events) {
    const Clock::time_point end = Clock::now() + kAwake;
    std::size_t count = 0;
    while ((count = epoll_.wait(events, 0)) == 0 && Clock::now() < end)
        ::sched_yield();
    return count;
}

// While the lock was free another worker may have taken the lead and begun to wait, and this look may have
// taken what was to end that wait: then it is ended again.
std::size_t LeaderWait::look(std::span<epoll_event> events, Lock& lock) {
    lock.unlock();
    const std::size_t count = epoll_.wait(events, 0);
    lock.lock();
    if (state_ == State::Ended)
        epoll_.wake();
    return count;
}

// Under the pool's lock, so there is one first. The others rely on it: the worker that is called looks at the
// line under that lock.
bool LeaderWait::end() {
    if (!isOn())
        return false;
    return std::exchange(state_, State::Ended) != State::Ended;
}

} // namespace port
