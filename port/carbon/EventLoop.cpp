#include "carbon/EventQueue.h"
#include "dispatch/MainLoop.h"
#include "host/Deadline.h"

namespace {

// So many events may be taken before the sources and the main queue have their turn, too.
constexpr unsigned kEventsPerTurn = 64;
unsigned eventsThisTurn = 0;

OpaqueEventRef* takeEvent(std::span<const EventTypeSpec> types, bool pull) {
    if (++eventsThisTurn >= kEventsPerTurn) {
        eventsThisTurn = 0;
        port::MainLoop::shared().runOnce(0);
    }
    return OpaqueEventQueueRef::shared().take(types, pull);
}

// At least one turn of the loop: what it does may post an event, however short the time is.
OpaqueEventRef* waitForEvent(std::span<const EventTypeSpec> types, bool pull, EventTimeout timeout) {
    const port::Deadline deadline(timeout);
    for (;;) {
        const int left = deadline.milliseconds();
        port::MainLoop::shared().runOnce(left);
        OpaqueEventRef* const event = takeEvent(types, pull);
        if (event != nullptr || left == 0)
            return event;
    }
}

} // namespace

EventLoopRef GetMainEventLoop() {
    return reinterpret_cast<EventLoopRef>(CFRunLoopGetMain());
}

CFRunLoopRef GetCFRunLoopFromEventLoop(EventLoopRef loop) {
    return reinterpret_cast<CFRunLoopRef>(loop);
}

OSStatus ReceiveNextEvent(ItemCount typeCount, const EventTypeSpec* types, EventTimeout timeout, Boolean pull,
                          EventRef* event) {
    const std::span wanted(types, typeCount);
    OpaqueEventRef* found = takeEvent(wanted, pull != 0);
    if (found == nullptr)
        found = waitForEvent(wanted, pull != 0, timeout);
    if (found == nullptr)
        return eventLoopTimedOutErr;
    *event = found;
    return noErr;
}
