// The one owner of a file descriptor: closes it when it is replaced or destroyed.
//
// Thread-safety: as a plain value. -1 means none.
#pragma once

#include <unistd.h>
#include <utility>

#pragma GCC visibility push(default)

namespace port {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Gives the descriptor up to the caller.
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        const int old = std::exchange(fd_, fd);
        if (old >= 0 && old != fd)
            ::close(old);
    }

private:
    int fd_ = -1;
};

} // namespace port

#pragma GCC visibility pop
