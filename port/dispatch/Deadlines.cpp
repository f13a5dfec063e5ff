#include "dispatch/Deadlines.h"

#include <algorithm>

namespace port {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongestWait{60'000}; // then it is reckoned anew

} // namespace

int Deadlines::millisecondsLeft(Clock::time_point now) const {
    const auto left = std::chrono::ceil<milliseconds>(waiting_.top().when - now);
    return static_cast<int>(std::clamp(left, milliseconds(0), kLongestWait).count());
}

std::vector<SourceKey> Deadlines::takeDue(Clock::time_point now) {
    std::vector<SourceKey> due;
    for (; !waiting_.empty() && waiting_.top().when <= now; waiting_.pop())
        due.push_back(waiting_.top().key);
    return due;
}

} // namespace port
