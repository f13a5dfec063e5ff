// The owner of one reference to a counted object, or of none.
//
// Thread-safety: as a plain value; the objects count by themselves.
#pragma once

#include <utility>

namespace port {

// T has `retain` and `release`.
template <typename T>
class Reference {
public:
    Reference() = default;
    // Takes over the reference that the caller holds.
    explicit Reference(T* object) : object_(object) {}
    // Adds a reference of its own; null is allowed.
    static Reference retained(T* object) {
        if (object != nullptr)
            object->retain();
        return Reference(object);
    }
    Reference(const Reference& other) : Reference(retained(other.object_)) {}
    Reference(Reference&& other) noexcept : object_(other.leak()) {}
    Reference& operator=(Reference other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Reference() {
        if (object_ != nullptr)
            object_->release();
    }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }
    // Gives the reference up to the caller.
    T* leak() { return std::exchange(object_, nullptr); }

private:
    T* object_ = nullptr;
};

} // namespace port
