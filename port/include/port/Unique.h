// The one owner of an object, or of an array, `Unique<T[]>`: what headers that everybody includes own by, as
// <memory> alone is twice as long as <string>.
//
// Thread-safety: as a plain value; null means none. The object may be of a type that is declared later, where the
// owner's destructor and what replaces the object are not inline.
#pragma once

#include <type_traits>
#include <utility>

#pragma GCC visibility push(default)

namespace port {

template <typename T>
class Unique {
public:
    using Element = std::remove_extent_t<T>;

    constexpr Unique() = default;
    explicit Unique(Element* object) : object_(object) {}
    Unique(Unique&& other) noexcept : object_(other.release()) {}
    Unique& operator=(Unique&& other) noexcept {
        reset(other.release());
        return *this;
    }
    Unique(const Unique&) = delete;
    Unique& operator=(const Unique&) = delete;
    ~Unique() { reset(); }

    Element* get() const { return object_; }
    Element* operator->() const { return object_; }
    Element& operator*() const { return *object_; }
    Element& operator[](unsigned long index) const { return object_[index]; }
    explicit operator bool() const { return object_ != nullptr; }
    // Gives the object up to the caller.
    Element* release() { return std::exchange(object_, nullptr); }
    void reset(Element* object = nullptr) {
        Element* const old = std::exchange(object_, object);
        if constexpr (std::is_array_v<T>)
            delete[] old;
        else
            delete old;
    }

private:
    Element* object_ = nullptr;
};

} // namespace port

#pragma GCC visibility pop
