#include "xpc/internal/LXPCEventGate.h"

#include <chrono>
#include <thread>

#include "base/LDeadline.h"

namespace {

constexpr std::uint32_t kClosedBit = std::uint32_t{1} << 31;
constexpr std::chrono::microseconds kCloseSlice{100};

thread_local LXPCEventScope* pInnermost = nullptr;

} // namespace

bool LXPCEventGate::_Enter() {
    if ((dwState.fetch_add(1, std::memory_order_acquire) & kClosedBit) == 0)
        return true;
    _Leave();
    return false;
}

void LXPCEventGate::_Leave() {
    dwState.fetch_sub(1, std::memory_order_release);
}

void LXPCEventGate::Close(unsigned dwMilliseconds) {
    if ((dwState.fetch_or(kClosedBit, std::memory_order_acq_rel) & kClosedBit) != 0)
        return;
    const std::uint32_t dwOwn = LXPCEventScope::CountOnThisThread(*this);
    const LDeadline deadline(dwMilliseconds);
    while ((dwState.load(std::memory_order_acquire) & ~kClosedBit) > dwOwn && !deadline.IsPast())
        std::this_thread::sleep_for(kCloseSlice);
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

std::uint32_t LXPCEventScope::CountOnThisThread(const LXPCEventGate& eventGate) {
    std::uint32_t dwCount = 0;
    for (const LXPCEventScope* pScope = pInnermost; pScope != nullptr; pScope = pScope->pOuter)
        if (pScope->bEntered && &pScope->gate == &eventGate)
            dwCount++;
    return dwCount;
}
