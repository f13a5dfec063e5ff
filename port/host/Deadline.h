// What a wait has left of its time, on a clock that nobody sets.
//
// Thread-safety: as a plain value.
#pragma once

#include <chrono>

namespace port {

class Deadline {
public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;
    static constexpr double kForever = -1;

    // Begins now. Seconds; times beyond some years have no limit.
    explicit Deadline(double seconds)
        : isLimited_(seconds != kForever && seconds < kLongest), end_(isLimited_ ? Clock::now() : Time()) {
        if (isLimited_ && seconds > 0)
            end_ += std::chrono::round<Clock::duration>(std::chrono::duration<double>(seconds));
    }

    explicit Deadline(std::chrono::milliseconds time, Time begin = Clock::now())
        : isLimited_(true), end_(begin + time) {}

    bool isPast(Time now = Clock::now()) const { return isLimited_ && now >= end_; }

    // Of one with a limit.
    Time end() const { return end_; }

    // -1 without a limit, 0 when the time has passed; a begun one counts as whole.
    int milliseconds() const {
        if (!isLimited_)
            return -1;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
        return left <= 0 ? 0 : static_cast<int>(left < kLongestWait ? left : kLongestWait);
    }

private:
    static constexpr double kLongest = 1e8;
    static constexpr long kLongestWait = 1'000'000'000; // longer ones are waited for in pieces

    bool isLimited_;
    Time end_;
};

} // namespace port
