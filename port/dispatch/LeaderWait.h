// The one wait of the workers. The worker that leads is inside of it, in the kernel; every other thread can end
// it. Ending costs a system call, so a wait is ended once, however many ask for it. Work that may come soon
// makes the next wait a short one, and does not end a short one: what comes meanwhile is found when it is over.
// Where the next part of a stream is near the wait begins without sleep, so that the sender, who is busy as it is,
// need not wake a thread for each part.
//
// Thread-safety: the lock of the pool covers every function but `epoll`; `wait` and `look` give it back while
// they are in the kernel.
#pragma once

#include "dispatch/Epoll.h"

#include <cstddef>
#include <mutex>
#include <span>

namespace port {

class LeaderWait {
public:
    using Lock = std::unique_lock<std::mutex>;
    struct Result {
        std::size_t events; // how many came, that of `end` among them
        bool wasShort;      // no events tell nothing then about how quiet it is
    };

    // The set that is waited on.
    Epoll& epoll() { return epoll_; }
    // A worker is in the wait.
    bool isOn() const { return state_ != State::Off; }

    // Waits for events, for `milliseconds` (-1: no limit) or for a short while. No other worker is in here.
    Result wait(std::span<epoll_event> events, int milliseconds, Lock& lock);
    // The events that are there already, for a leader that has work in line.
    std::size_t look(std::span<epoll_event> events, Lock& lock);
    // There is work that may come soon.
    void makeNextShort() { nextIsShort_ = true; }
    // The next part of a stream is near.
    void makeNextAwake() { nextIsAwake_ = true; }
    // A wait is on, and will be over soon.
    bool isShort() const { return state_ == State::Short; }
    // Ends the wait that is on, if one is. True for the first who asks: the caller then has to `wake` the set,
    // without the lock where others may come for it.
    bool end();

private:
    enum class State {
        Off,   // nobody waits: the leader works, or there is none
        Long,  //
        Short, //
        Ended, // called by `end`; the worker is not back yet, and will see all that was put in line
    };

    std::size_t waitAwake(std::span<epoll_event> events);

    Epoll epoll_;
    State state_ = State::Off;
    bool nextIsShort_ = false;
    bool nextIsAwake_ = false;
};

} // namespace port
