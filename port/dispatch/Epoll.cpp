#include "dispatch/Epoll.h"

#include "host/SystemCalls.h"

#include <algorithm>
#include <chrono>
#include <port/UniqueFd.h>
#include <sys/eventfd.h>
#include <thread>

namespace port {
namespace {

constexpr int kLook = 5; // ms between two tries to get the descriptors

} // namespace

bool Epoll::open() {
    const std::lock_guard lock(opening_);
    if (epoll_ != -1)
        return true;
    UniqueFd set(::epoll_create1(EPOLL_CLOEXEC));
    if (!set)
        return false;
    UniqueFd wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    // Edge-triggered: each write is one event and the counter is never read back.
    epoll_event event{.events = EPOLLIN | EPOLLET, .data = {.u64 = kWakeKey}};
    if (!wake || ::epoll_ctl(set.get(), EPOLL_CTL_ADD, wake.get(), &event) != 0)
        return false;
    // The eventfd first: whoever sees the set can be woken in it.
    wake_ = wake.release();
    epoll_ = set.release();
    if (missed_)
        this->wake();
    return true;
}

// Without the lock once it is open, for then neither descriptor changes any more.
int Epoll::fd() {
    const int set = epoll_.load(std::memory_order_acquire);
    return set != -1 || !open() ? set : epoll_.load(std::memory_order_acquire);
}

bool Epoll::control(int operation, int fd, std::uint32_t events, SourceKey key) {
    epoll_event event{.events = events, .data = {.u64 = key}};
    const int set = this->fd();
    return set != -1 && sys::watch(set, operation, fd, &event) == 0;
}

bool Epoll::add(int fd, std::uint32_t events, SourceKey key) {
    return control(EPOLL_CTL_ADD, fd, events, key);
}

bool Epoll::modify(int fd, std::uint32_t events, SourceKey key) {
    return control(EPOLL_CTL_MOD, fd, events, key);
}

void Epoll::remove(int fd) {
    static_cast<void>(control(EPOLL_CTL_DEL, fd, 0, kNoSource));
}

// Either the one who opens sees what was missed, or this one sees what was opened.
void Epoll::wake() {
    if (wake_ == -1)
        missed_ = true;
    if (const int wake = wake_; wake != -1)
        ::eventfd_write(wake, 1);
}

std::size_t Epoll::wait(std::span<epoll_event> events, int milliseconds) {
    const int set = epoll_.load(std::memory_order_acquire);
    if (set == -1) {
        if (!open())
            std::this_thread::sleep_for(
                std::chrono::milliseconds(milliseconds < 0 ? kLook : std::min(milliseconds, kLook)));
        // Opened just now, or still not: the caller looks at its line, and comes again.
        return 0;
    }
    const int count = ::epoll_wait(set, events.data(), static_cast<int>(events.size()), milliseconds);
    return count < 0 ? 0 : static_cast<std::size_t>(count);
}

} // namespace port
