#include "carbon/EventQueue.h"

#include "dispatch/MainLoop.h"

#include <utility>
#include <vector>

namespace {

constexpr std::size_t kEventsPerTurn = 64; // then the rest of the main loop has its turn

} // namespace

// Only a program with events has the main loop look at them.
OpaqueEventQueueRef::OpaqueEventQueueRef() {
    port::MainLoop::shared().setEventServer(serve);
}

OpaqueEventQueueRef& OpaqueEventQueueRef::shared() {
    static OpaqueEventQueueRef& queue = *new OpaqueEventQueueRef;
    return queue;
}

bool OpaqueEventQueueRef::post(OpaqueEventRef& event, EventPriority priority) {
    bool wakes = false;
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(event.isQueued_, true))
            return false;
        event.retain();
        event.priority_ = priority;
        List& list = lists_[static_cast<std::size_t>(priority)];
        event.before_ = std::exchange(list.last, &event);
        (event.before_ == nullptr ? list.first : event.before_->after_) = &event;
        ++count_;
        wakes = std::exchange(wakes_, false);
    }
    if (wakes)
        port::MainLoop::shared().wake();
    return true;
}

void OpaqueEventQueueRef::unlink(OpaqueEventRef& event) {
    List& list = lists_[static_cast<std::size_t>(event.priority_)];
    (event.before_ == nullptr ? list.first : event.before_->after_) = event.after_;
    (event.after_ == nullptr ? list.last : event.after_->before_) = event.before_;
    event.before_ = event.after_ = nullptr;
    event.isQueued_ = false;
    --count_;
}

OpaqueEventRef* OpaqueEventQueueRef::take(std::span<const EventTypeSpec> types, bool pull) {
    const std::lock_guard lock(mutex_);
    for (auto list = lists_.rbegin(); list != lists_.rend(); ++list) {
        for (OpaqueEventRef* event = list->first; event != nullptr; event = event->after_) {
            if (!types.empty() && !event->isOneOf(types))
                continue;
            if (pull)
                unlink(*event);
            return event;
        }
    }
    wakes_ = true;
    return nullptr;
}

std::size_t OpaqueEventQueueRef::count() const {
    const std::lock_guard lock(mutex_);
    return count_;
}

bool OpaqueEventQueueRef::isQueued(const OpaqueEventRef& event) const {
    const std::lock_guard lock(mutex_);
    return event.isQueued_;
}

void OpaqueEventQueueRef::remove(OpaqueEventRef& event) {
    port::EventHold own;
    const std::lock_guard lock(mutex_);
    if (!event.isQueued_)
        return;
    unlink(event);
    own.reset(&event);
}

// The comparator runs without the lock, and may itself take events out or flush: what is no longer queued when
// its turn comes is not asked about.
void OpaqueEventQueueRef::flush(EventComparatorUPP comparator, void* data) {
    std::vector<port::EventHold> queued;
    {
        const std::lock_guard lock(mutex_);
        queued.reserve(count_);
        for (auto list = lists_.rbegin(); list != lists_.rend(); ++list) {
            for (OpaqueEventRef* event = list->first; event != nullptr; event = event->after_)
                queued.emplace_back(RetainEvent(event));
        }
    }
    for (const port::EventHold& event : queued)
        if (isQueued(*event) && comparator(event.get(), data) != 0)
            remove(*event);
}

bool OpaqueEventQueueRef::serve() {
    OpaqueEventQueueRef& queue = shared();
    for (std::size_t i = 0; i < kEventsPerTurn; ++i) {
        const port::EventHold event(queue.take({}, true));
        if (event == nullptr)
            return false;
        SendEventToEventTarget(event.get(), GetEventDispatcherTarget());
    }
    return true;
}

EventQueueRef GetMainEventQueue() {
    return &OpaqueEventQueueRef::shared();
}

EventQueueRef GetCurrentEventQueue() {
    return GetMainEventQueue();
}

OSStatus PostEventToQueue(EventQueueRef queue, EventRef event, EventPriority priority) {
    if (queue == nullptr || event == nullptr || priority < kEventPriorityLow || priority > kEventPriorityHigh)
        return paramErr;
    return queue->post(*event, priority) ? OSStatus{noErr} : eventAlreadyPostedErr;
}

ItemCount GetNumEventsInQueue(EventQueueRef queue) {
    return queue->count();
}

OSStatus FlushSpecificEventsFromQueue(EventQueueRef queue, EventComparatorUPP comparator, void* data) {
    if (queue == nullptr || comparator == nullptr)
        return paramErr;
    queue->flush(comparator, data);
    return noErr;
}
