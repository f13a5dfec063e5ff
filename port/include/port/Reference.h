// The owner of one reference to a counted object, or of none.
//
// Thread-safety: as a plain value; the objects count by themselves.
#pragma once

#include <type_traits>
#include <utility>

#pragma GCC visibility push(default)

namespace port {

// How objects that count by themselves are counted.
struct ByItself {
    template <typename T>
    static void retain(T* object) {
        object->retain();
    }
    template <typename T>
    static void release(T* object) {
        object->release();
    }
};

template <typename T, typename Count = ByItself>
class Reference {
public:
    Reference() = default;
    // Takes over the reference that the caller holds.
    explicit Reference(T* object) : object_(object) {}
    // Adds a reference of its own; null is allowed.
    static Reference retained(T* object) {
        if (object != nullptr)
            Count::retain(object);
        return Reference(object);
    }
    Reference(const Reference& other) : Reference(retained(other.object_)) {}
    Reference(Reference&& other) noexcept : object_(other.release()) {}
    // Of a derived class.
    template <typename Other>
    requires std::is_convertible_v<Other*, T*> Reference(const Reference<Other, Count>& other)
        : Reference(retained(other.get())) {}
    Reference& operator=(Reference other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }
    ~Reference() {
        if (object_ != nullptr)
            Count::release(object_);
    }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    std::add_lvalue_reference_t<T> operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }
    // Gives the reference up to the caller.
    T* release() { return std::exchange(object_, nullptr); }

private:
    T* object_ = nullptr;
};

} // namespace port

#pragma GCC visibility pop
