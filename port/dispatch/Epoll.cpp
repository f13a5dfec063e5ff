#include "dispatch/Epoll.h"

#include "host/SystemCalls.h"

#include <cstdio>
#include <cstdlib>
#include <sys/eventfd.h>

namespace port {
namespace {

// Without its two descriptors no loop can run and nobody could be told.
int required(int fd) {
    if (fd >= 0)
        return fd;
    std::perror("dispatch");
    std::abort();
}

} // namespace

Epoll::Epoll()
    : epoll_(required(::epoll_create1(EPOLL_CLOEXEC))),
      wake_(required(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {
    // Edge-triggered: each write is one event and the counter is never read back.
    add(wake_.get(), EPOLLIN | EPOLLET, kWakeKey);
}

bool Epoll::add(int fd, std::uint32_t events, SourceKey key) {
    epoll_event event{.events = events, .data = {.u64 = key}};
    return sys::watch(epoll_.get(), EPOLL_CTL_ADD, fd, &event) == 0;
}

bool Epoll::modify(int fd, std::uint32_t events, SourceKey key) {
    epoll_event event{.events = events, .data = {.u64 = key}};
    return sys::watch(epoll_.get(), EPOLL_CTL_MOD, fd, &event) == 0;
}

void Epoll::remove(int fd) {
    epoll_event unused{};
    sys::watch(epoll_.get(), EPOLL_CTL_DEL, fd, &unused);
}

void Epoll::wake() {
    ::eventfd_write(wake_.get(), 1);
}

std::size_t Epoll::wait(std::span<epoll_event> events, int milliseconds) {
    const int count =
        ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), milliseconds);
    return count < 0 ? 0 : static_cast<std::size_t>(count);
}

} // namespace port
