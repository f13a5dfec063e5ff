// What every XPC handle points to: a reference count and a type. An `xpc_object_t` is an XPCObject*.
//
// Thread-safety: the count is atomic; retain and release may be called from any thread that holds a
// reference.
#pragma once

#include <atomic>
#include <cstdint>
#include <port/Reference.h>
#include <utility>
#include <xpc/xpc.h>

namespace port {

// The types of values, as they stand on the wire, then those of objects that never travel.
enum class XPCTag : std::uint8_t {
    None = 0,
    Bool = 1,
    Int64 = 2,
    UInt64 = 3,
    Double = 4,
    Date = 5,
    Data = 6,
    UUID = 7,
    String = 8,
    FD = 9,
    Connection,
    Dictionary,
    Error,
};

} // namespace port

struct _xpc_type_s {
    port::XPCTag tag;
};

namespace port {

class XPCObject {
public:
    XPCObject(const XPCObject&) = delete;
    XPCObject& operator=(const XPCObject&) = delete;

    void retain() noexcept {
        if (!isImmortal())
            references_.fetch_add(1, std::memory_order_relaxed);
    }
    // False, with nothing done, when the last reference is gone already.
    bool retainUnlessGone() noexcept {
        std::int32_t count = references_.load(std::memory_order_relaxed);
        while (count > 0 && !references_.compare_exchange_weak(count, count + 1, std::memory_order_relaxed)) {
        }
        return count != 0;
    }
    // The last release calls `dispose`.
    void release() noexcept {
        if (!isImmortal() && references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
            dispose();
    }
    xpc_type_t type() const { return type_; }

    // The object behind a handle; null for null.
    static XPCObject* from(xpc_object_t object) { return static_cast<XPCObject*>(object); }

protected:
    enum class Lifetime : std::int32_t { Counted = 1, Immortal = -1 };

    // A counted object begins with one reference, the creator's.
    constexpr explicit XPCObject(xpc_type_t type, Lifetime lifetime = Lifetime::Counted)
        : type_(type), references_(static_cast<std::int32_t>(lifetime)) {}
    // Not virtual, so that immortal objects need no destruction at exit; `dispose` of a counted class is
    // `delete this`.
    ~XPCObject() = default;

private:
    virtual void dispose() noexcept = 0;
    bool isImmortal() const { return references_.load(std::memory_order_relaxed) < 0; }

    xpc_type_t type_;
    std::atomic<std::int32_t> references_;
};

// The shared object that stands for "a value of this type"; it carries no value. Null for tags of no value.
XPCObject* xpcValueMarker(XPCTag tag);

// Holds one reference to a T, a class derived from XPCObject.
template <typename T>
using XPCRef = Reference<T>;

} // namespace port

// The error objects carry nothing but their identity.
struct _xpc_error_s final : port::XPCObject {
    constexpr explicit _xpc_error_s(xpc_type_t type) : XPCObject(type, Lifetime::Immortal) {}

private:
    void dispose() noexcept override {}
};
