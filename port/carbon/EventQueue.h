// The one event queue: three lists in order of priority, linked through the events themselves.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include "carbon/Event.h"

#include <array>
#include <cstddef>
#include <mutex>
#include <span>

struct OpaqueEventQueueRef final {
    static OpaqueEventQueueRef& shared();

    // The queue takes a reference. False when the event is queued already.
    bool post(OpaqueEventRef& event, EventPriority priority);
    // The first event of one of the types (of any type without types), with the queue's reference when it is
    // pulled. Null when there is none: the next post then wakes the main loop.
    OpaqueEventRef* take(std::span<const EventTypeSpec> types, bool pull);
    std::size_t count() const;
    void flush(EventComparatorUPP comparator, void* data);

private:
    struct List {
        OpaqueEventRef* first = nullptr;
        OpaqueEventRef* last = nullptr;
    };

    OpaqueEventQueueRef();
    static bool serve();
    void unlink(OpaqueEventRef& event);
    bool isQueued(const OpaqueEventRef& event) const;
    void remove(OpaqueEventRef& event);

    mutable std::mutex mutex_;
    std::array<List, kEventPriorityHigh + 1> lists_;
    std::size_t count_ = 0;
    bool wakes_ = true; // the main loop may be waiting for a post
};
