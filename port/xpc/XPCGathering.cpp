#include "xpc/XPCGathering.h"

#include <algorithm>

namespace port {
namespace {

constexpr std::size_t kMostMessages = 2 * kGatherFrames;
constexpr std::size_t kMostBarriers = 8;
constexpr unsigned kFewMisses = 4; // may come within a stream
constexpr unsigned kMostMisses = 10;

} // namespace

// Whoever wants an answer does not wait for anything.
bool XPCGathering::isToWait(XPCFrameKind kind, std::size_t bodyBytes) {
    lastIsLarge_ = bodyBytes >= kLargeFrameBytes;
    return turn_ == Turn::Now && !lastIsLarge_ && kind == XPCFrameKind::Message &&
           ++waiting_ <= kMostMessages;
}

// Counted anew: they went out before their turn came, and the bound is on what waits together.
void XPCGathering::written() {
    if (turn_ == Turn::Now)
        waiting_ = 0;
}

// A barrier has found the queue at rest. On another queue than the workers' a turn may be far, so nothing waits
// for it.
Urgency XPCGathering::turnIsPutInLine() {
    const bool waits = lastIsLarge_ && toCome_ == 0;
    if (toCome_ != 0)
        --toCome_;
    turn_ = !onWorkers_ ? Turn::None : waits ? Turn::Soon : Turn::Now;
    waiting_ = turn_ == Turn::Soon ? 1 : 0;
    return turn_ == Turn::Soon ? Urgency::Soon : Urgency::Now;
}

// Enough of them, or the stream of large messages has ended: the pool is to hurry.
bool XPCGathering::barrierJoins() {
    return turn_ == Turn::Soon && (++waiting_ == kMostBarriers || !lastIsLarge_);
}

// From here on what is sent goes out at once: the worker is in the turn already, and would not come back for
// it.
void XPCGathering::turnBegins() {
    if (turn_ == Turn::Soon) { // the more often in vain, the longer until it is tried again
        misses_ = waiting_ >= kMostBarriers ? 0 : std::min(misses_ + 1, kMostMisses);
        toCome_ = misses_ < kFewMisses ? 0 : 1U << misses_;
    }
    turn_ = Turn::None;
    waiting_ = 0;
}

} // namespace port
