#include "dispatch/LeaderWait.h"

#include <utility>

namespace port {
namespace {

constexpr int kShortWait = 1; // ms

} // namespace

LeaderWait::Result LeaderWait::wait(std::span<epoll_event> events, int milliseconds, Lock& lock) {
    const bool isShort = std::exchange(nextIsShort_, false);
    state_ = isShort ? State::Short : State::Long;
    lock.unlock();
    const std::size_t count = epoll_.wait(events, isShort ? kShortWait : milliseconds);
    lock.lock();
    state_ = State::Off;
    return {count, isShort};
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

bool LeaderWait::end() {
    if (!isOn())
        return false;
    return std::exchange(state_, State::Ended) != State::Ended;
}

} // namespace port
