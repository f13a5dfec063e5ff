// What the messages of this process hold in memory, all together: bodies, those that are on their way too, attached
// values, and what waits to be sent. Peers are refused more than kMaxHeldBytes.
//
// Thread-safety: the sum may be asked for and changed from any thread; a hold is a plain value of its owner.
#pragma once

#include "xpc/XPCLimits.h"

#include <atomic>
#include <cstddef>
#include <utility>

namespace port {

// Counts among the sum for as long as it lives.
class XPCHold {
public:
    XPCHold() = default;
    explicit XPCHold(std::size_t bytes) : bytes_(bytes) { sum_.fetch_add(bytes, std::memory_order_relaxed); }
    XPCHold(XPCHold&& other) noexcept : bytes_(std::exchange(other.bytes_, 0)) {}
    XPCHold& operator=(XPCHold&& other) noexcept {
        XPCHold before(std::move(*this));
        bytes_ = std::exchange(other.bytes_, 0);
        return *this;
    }
    ~XPCHold() {
        if (bytes_ != 0)
            sum_.fetch_sub(bytes_, std::memory_order_relaxed);
    }

    std::size_t bytes() const { return bytes_; }

    // Whether so much more may be held for a peer. What is small always may: it is bounded by the number of
    // connections, and short messages go on while others fill the memory.
    static bool hasRoom(std::size_t bytes) {
        return bytes <= kSmallMessageBytes || sum_.load(std::memory_order_relaxed) + bytes <= kMaxHeldBytes;
    }
    static bool isFull() { return sum_.load(std::memory_order_relaxed) > kMaxHeldBytes; }

private:
    static inline constinit std::atomic<std::size_t> sum_{0};
    std::size_t bytes_ = 0;
};

} // namespace port
