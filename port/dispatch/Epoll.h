// One epoll set, and the eventfd with which another thread ends a wait on it.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include "dispatch/Source.h"

#include <cstddef>
#include <cstdint>
#include <port/UniqueFd.h>
#include <span>
#include <sys/epoll.h>

namespace port {

class Epoll {
public:
    // The key under which `wake` is reported; no source has it.
    static constexpr SourceKey kWakeKey = ~SourceKey{0};

    Epoll();

    int fd() const { return epoll_.get(); }
    // False with errno when the kernel refuses.
    bool add(int fd, std::uint32_t events, SourceKey key);
    bool modify(int fd, std::uint32_t events, SourceKey key);
    void remove(int fd);
    // Ends the wait that runs, or the next one.
    void wake();
    // How many events came: 0 after `milliseconds` (-1: no limit) or a signal.
    std::size_t wait(std::span<epoll_event> events, int milliseconds);

private:
    UniqueFd epoll_;
    UniqueFd wake_;
};

} // namespace port
