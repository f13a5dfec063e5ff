// The time that a wait has left, on a clock that nobody sets.
//
// Thread-safety: as a plain value.
#pragma once

#include <cstdint>
#include <ctime>

#pragma GCC visibility push(default)

class LDeadline {
public:
    // Begins now. Milliseconds; 0xFFFFFFFF never passes.
    explicit LDeadline(unsigned int timeout) : dwTimeout(timeout), qwStart(_Now()) {}

    // Milliseconds left, a begun one counted as whole, so that a wait never ends before its time; 0 when the
    // time has passed, 0xFFFFFFFF without a limit.
    unsigned int GetRemaining() const {
        if (dwTimeout == 0xFFFFFFFFU)
            return dwTimeout;
        const std::uint64_t qwSpent = (_Now() - qwStart) / 1000000;
        return qwSpent >= dwTimeout ? 0 : static_cast<unsigned int>(dwTimeout - qwSpent);
    }
    bool IsPast() const { return GetRemaining() == 0; }

private:
    static std::uint64_t _Now() {
        timespec now;
        clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<std::uint64_t>(now.tv_sec) * 1000000000 + static_cast<std::uint64_t>(now.tv_nsec);
    }

    unsigned int dwTimeout;
    std::uint64_t qwStart;
};

#pragma GCC visibility pop
