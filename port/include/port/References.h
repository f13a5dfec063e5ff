// A growing array of references, each to an object.
//
// Thread-safety: as a plain value.
#pragma once

#include <port/Reference.h>
#include <port/Unique.h>

#pragma GCC visibility push(default)

namespace port {

template <typename T>
class References {
public:
    References() = default;
    References(References&& other) noexcept
        : items_(std::move(other.items_)), size_(std::exchange(other.size_, 0)),
          capacity_(std::exchange(other.capacity_, 0)) {}
    References& operator=(References&& other) noexcept {
        std::swap(items_, other.items_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
        return *this;
    }

    unsigned long size() const { return size_; }
    bool empty() const { return size_ == 0; }
    Reference<T>* begin() const { return items_.get(); }
    Reference<T>* end() const { return items_.get() + size_; }
    Reference<T>& operator[](unsigned long index) const { return items_[index]; } // below the size
    Reference<T>& front() const { return items_[0]; }

    void push_back(Reference<T> object) {
        if (size_ == capacity_)
            grow(2 * capacity_ + 1);
        items_[size_++] = std::move(object);
    }
    // Of those that are kept none changes its place among them.
    template <typename Predicate>
    void removeIf(Predicate isToGo) {
        unsigned long kept = 0;
        for (unsigned long i = 0; i < size_; ++i)
            if (!isToGo(items_[i]))
                std::swap(items_[kept++], items_[i]);
        while (size_ > kept)
            items_[--size_] = {};
    }

private:
    void grow(unsigned long capacity) {
        Unique<Reference<T>[]> larger(new Reference<T>[capacity]);
        for (unsigned long i = 0; i < size_; ++i)
            larger[i] = std::move(items_[i]);
        items_ = std::move(larger);
        capacity_ = capacity;
    }

    Unique<Reference<T>[]> items_;
    unsigned long size_ = 0;
    unsigned long capacity_ = 0;
};

} // namespace port

#pragma GCC visibility pop
