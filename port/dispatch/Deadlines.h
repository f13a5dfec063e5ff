// The times at which sources want to be called, soonest first.
//
// Thread-safety: none; the pool's lock covers it.
#pragma once

#include "dispatch/Source.h"

#include <chrono>
#include <queue>
#include <vector>

namespace port {

class Deadlines {
public:
    using Clock = std::chrono::steady_clock;

    bool isEmpty() const { return waiting_.empty(); }
    void add(Clock::time_point when, SourceKey key) { waiting_.push({when, key}); }
    // Milliseconds until the first one, rounded up so that it is due then; 0 when it is due already, at most a
    // minute. There is one.
    int millisecondsLeft(Clock::time_point now) const;
    // Takes out those that are due, soonest first.
    std::vector<SourceKey> takeDue(Clock::time_point now);

private:
    struct Deadline {
        Clock::time_point when;
        SourceKey key;
        bool operator<(const Deadline& other) const {
            return when > other.when;
        } // the queue's top is largest
    };
    std::priority_queue<Deadline> waiting_;
};

} // namespace port
