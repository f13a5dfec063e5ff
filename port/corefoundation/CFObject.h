// What every counted object of Core Foundation has in common, and the owner of one reference to it.
//
// Thread-safety: counts are atomic; an owner belongs to one thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <type_traits>

#include <CoreFoundation/CoreFoundation.h>
#include <port/Reference.h>

namespace port {

enum class CFKind : CFTypeID {
    String = 1,
    Data,
    Number,
    Boolean,
    Date,
    Error,
    Array,
    Dictionary,
    URL,
    Bundle,
    Locale,
    RunLoop,
    RunLoopSource,
    Socket
};

// The first and only base of each object, so that a CFTypeRef is a pointer to it.
class CFObject {
public:
    CFObject(const CFObject&) = delete;
    CFObject& operator=(const CFObject&) = delete;

    CFKind kind() const { return kind_; }
    void retain() const { count_.fetch_add(1, std::memory_order_relaxed); }
    void release() const {
        if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }
    // `other` is of the same kind.
    virtual bool equals(const CFObject& other) const { return this == &other; }

protected:
    constexpr explicit CFObject(CFKind kind) : kind_(kind) {}
    virtual ~CFObject() = default;

private:
    mutable std::atomic<std::uint32_t> count_{1};
    const CFKind kind_;
};

inline const CFObject& objectOf(CFTypeRef object) {
    return *static_cast<const CFObject*>(object);
}

// The object as one of the given kind, null when it is null or of another kind.
template <typename Pointer>
Pointer asKind(CFTypeRef object, CFKind kind) {
    return object != nullptr && objectOf(object).kind() == kind ? static_cast<Pointer>(object) : nullptr;
}

struct CFCount {
    static void retain(CFTypeRef object) { objectOf(object).retain(); }
    static void release(CFTypeRef object) { CFRelease(object); }
};

// One reference to an object, or none. `Pointer` is the platform's reference type (CFStringRef ...).
template <typename Pointer>
using CFRef = Reference<std::remove_pointer_t<Pointer>, CFCount>;

// A constant that is built at compile time and never destroyed.
template <typename T>
union CFImmortal {
    template <typename... Arguments>
    constexpr explicit CFImmortal(Arguments... arguments) : value(arguments...) {}
    ~CFImmortal() {} // the value stays: threads may still use it while the process exits

    T value;
};

} // namespace port
