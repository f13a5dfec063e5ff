#include "xpc/XPCGathering.h"

namespace port {
namespace {

constexpr std::size_t kMostMessages = 2 * kGatherFrames;
constexpr std::size_t kMostBarriers = 8;

} // namespace

// Whoever wants an answer does not wait for anything.
bool XPCGathering::isToWait(XPCFrameKind kind, std::size_t bodyBytes) {
    lastIsLarge_ = bodyBytes >= kLargeFrameBytes;
    return turn_ == Turn::Now && !lastIsLarge_ && kind == XPCFrameKind::Message &&
           ++waiting_ <= kMostMessages;
}

void XPCGathering::written() {
    if (turn_ == Turn::Now)
        waiting_ = 0;
}

Urgency XPCGathering::turnIsPutInLine() {
    turn_ = !onWorkers_ ? Turn::None : lastIsLarge_ ? Turn::Soon : Turn::Now;
    waiting_ = turn_ == Turn::Soon ? 1 : 0;
    return turn_ == Turn::Soon ? Urgency::Soon : Urgency::Now;
}

bool XPCGathering::barrierJoins() {
    return turn_ == Turn::Soon && (++waiting_ == kMostBarriers || !lastIsLarge_);
}

void XPCGathering::turnBegins() {
    turn_ = Turn::None;
    waiting_ = 0;
}

} // namespace port
