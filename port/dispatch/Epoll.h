// One epoll set, and the eventfd with which another thread ends a wait on it. Where no descriptor is left for the
// two, each use tries again: sources are refused until then, and a wait is a look every few milliseconds.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include "dispatch/Source.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <sys/epoll.h>

namespace port {

class Epoll {
public:
    // The key under which `wake` is reported; no source has it.
    static constexpr SourceKey kWakeKey = ~SourceKey{0};

    Epoll() = default;
    Epoll(const Epoll&) = delete;
    Epoll& operator=(const Epoll&) = delete;

    // -1 with errno while the system has no descriptors for it.
    int fd();
    // False with errno when the kernel refuses.
    bool add(int fd, std::uint32_t events, SourceKey key);
    bool modify(int fd, std::uint32_t events, SourceKey key);
    void remove(int fd);
    // Ends the wait that runs, or the next one.
    void wake();
    // How many events came: 0 after `milliseconds` (-1: no limit), after a signal, or sooner while there are no
    // descriptors.
    std::size_t wait(std::span<epoll_event> events, int milliseconds);

private:
    bool open();
    bool control(int operation, int fd, std::uint32_t events, SourceKey key);

    std::mutex opening_;
    // Both live as long as the process once they are there.
    std::atomic<int> epoll_{-1};
    std::atomic<int> wake_{-1};
    std::atomic<bool> missed_{false}; // a wake that came before there was anything to wake
};

} // namespace port
