#include "xpc/internal/LXPCEventGate.h"

namespace {

constexpr std::uint32_t kClosedBit = std::uint32_t{1} << 31;

thread_local LXPCEventScope* pInnermost = nullptr;

} // namespace

// An event that is refused leaves no trace: whoever looks sees the events that run, and no others.
bool LXPCEventGate::_Enter() {
    std::uint32_t dwSeen = dwState.load(std::memory_order_relaxed);
    while ((dwSeen & kClosedBit) == 0)
        if (dwState.compare_exchange_weak(dwSeen, dwSeen + 1, std::memory_order_acquire,
                                          std::memory_order_relaxed))
            return true;
    return false;
}

// Release: what the event has done happens before the end of the wait that sees it gone. The gate is still
// touched after the count, when the endpoint may be gone; the event's share of the state keeps it.
void LXPCEventGate::_Leave() {
    if ((dwState.fetch_sub(1, std::memory_order_release) & kClosedBit) != 0)
        dwState.notify_all();
}

// The bit and the number are one word: an event is either counted before the bit is set, or sees it.
void LXPCEventGate::Close() {
    dwState.fetch_or(kClosedBit, std::memory_order_relaxed);
}

bool LXPCEventGate::IsBusy() const {
    return (dwState.load(std::memory_order_acquire) & ~kClosedBit) > LXPCEventScope::CountOnThisThread(*this);
}

// Events further out on this very thread are not waited for: they are what called the destructor.
void LXPCEventGate::WaitForOthers() const {
    const std::uint32_t dwLeft = kClosedBit | LXPCEventScope::CountOnThisThread(*this);
    for (std::uint32_t dwSeen; (dwSeen = dwState.load(std::memory_order_acquire)) != dwLeft;)
        dwState.wait(dwSeen, std::memory_order_relaxed);
}

LXPCEventScope::LXPCEventScope(LXPCEventGate& eventGate)
    : gate(eventGate), pOuter(pInnermost), bEntered(eventGate._Enter()) {
    pInnermost = this;
}

LXPCEventScope::~LXPCEventScope() {
    pInnermost = pOuter;
    if (bEntered)
        gate._Leave();
}

// The chain is the thread's own, so it needs no lock. It has the events of other endpoints in it, too.
std::uint32_t LXPCEventScope::CountOnThisThread(const LXPCEventGate& eventGate) {
    std::uint32_t dwCount = 0;
    for (const LXPCEventScope* pScope = pInnermost; pScope != nullptr; pScope = pScope->pOuter)
        if (pScope->bEntered && &pScope->gate == &eventGate)
            dwCount++;
    return dwCount;
}
