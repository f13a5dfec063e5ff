// The body of an event: its type, its parameters, and its place in the queue.
//
// Thread-safety: the count is atomic; parameters belong to one thread at a time, the place to the queue.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include <Carbon/Carbon.h>

struct OpaqueEventRef final {
    OpaqueEventRef(OSType eventClass, UInt32 kind) : type_{eventClass, kind} {}
    OpaqueEventRef(const OpaqueEventRef&) = delete;
    OpaqueEventRef& operator=(const OpaqueEventRef&) = delete;

    void retain() { count_.fetch_add(1, std::memory_order_relaxed); }
    void release() {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    const EventTypeSpec& type() const { return type_; }
    bool isOneOf(std::span<const EventTypeSpec> types) const;

    struct Parameter {
        EventParamName name = 0;
        EventParamType type = 0;
        std::size_t size = 0;
        std::array<char, sizeof(void*)> small;
        std::unique_ptr<char[]> large; // what does not fit the small one

        std::span<const char> bytes() const { return {large ? large.get() : small.data(), size}; }
        void setBytes(std::span<const char> bytes);
    };
    void setParameter(EventParamName name, EventParamType type, std::span<const char> bytes);
    // Null when there is none of that name.
    Parameter* parameter(EventParamName name);

private:
    friend struct OpaqueEventQueueRef;
    static constexpr std::size_t kUsualParameters = 2;

    ~OpaqueEventRef() = default;

    std::atomic<std::uint32_t> count_{1};
    const EventTypeSpec type_;
    EventPriority priority_ = kEventPriorityStandard;
    bool isQueued_ = false;
    std::uint8_t usualCount_ = 0;
    OpaqueEventRef* before_ = nullptr;
    OpaqueEventRef* after_ = nullptr;
    std::array<Parameter, kUsualParameters> usual_;
    std::unique_ptr<std::vector<Parameter>> further_;
};

namespace port {

// One reference to an event.
struct EventRelease {
    void operator()(OpaqueEventRef* event) const { ReleaseEvent(event); }
};
using EventHold = std::unique_ptr<OpaqueEventRef, EventRelease>;

} // namespace port
