// Two plain owning arrays: one of a fixed count, one that is resized exactly.
//
// Thread-safety: none; the owner guards it.
// An allocation that fails throws std::bad_alloc and leaves the array as it was. An index is below the count.
// Moving takes the elements and leaves an array without any.
#pragma once

#include <cstring>
#include <port/Unique.h>

#pragma GCC visibility push(default)

// `count` elements, each zero-filled.
template <typename T>
class LArray {
public:
    explicit LArray(unsigned long count) : pItems(new T[count]()), dwCount(count) {}
    LArray(LArray&& other) noexcept
        : pItems(std::move(other.pItems)), dwCount(std::exchange(other.dwCount, 0)) {}
    LArray& operator=(LArray&& other) noexcept {
        pItems = std::move(other.pItems);
        dwCount = std::exchange(other.dwCount, 0);
        return *this;
    }

    T* GetData() { return pItems.get(); }
    const T* GetData() const { return pItems.get(); }
    unsigned long GetCount() const { return dwCount; }
    T& operator[](unsigned long index) { return pItems[index]; }
    const T& operator[](unsigned long index) const { return pItems[index]; }

private:
    port::Unique<T[]> pItems;
    unsigned long dwCount;
};

// A resizable array of plain values; null while its size is 0.
template <typename T>
class LVector {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    LVector() = default;
    LVector(LVector&& other) noexcept
        : pItems(std::move(other.pItems)), dwSize(std::exchange(other.dwSize, 0)) {}
    LVector& operator=(LVector&& other) noexcept {
        pItems = std::move(other.pItems);
        dwSize = std::exchange(other.dwSize, 0);
        return *this;
    }

    T* GetData() { return pItems.get(); }
    const T* GetData() const { return pItems.get(); }
    unsigned long GetSize() const { return dwSize; }
    T& operator[](unsigned long index) { return pItems[index]; }
    const T& operator[](unsigned long index) const { return pItems[index]; }

    // Reallocates exactly n elements, unless there are n: the first min(old, n) keep their values, new ones
    // are not initialised.
    void SetSize(unsigned long n) {
        if (n == dwSize)
            return;
        port::Unique<T[]> pNew(n != 0 ? new T[n] : nullptr);
        if (const unsigned long dwKept = n < dwSize ? n : dwSize; dwKept != 0)
            std::memcpy(pNew.get(), pItems.get(), dwKept * sizeof(T));
        pItems = std::move(pNew);
        dwSize = n;
    }

private:
    port::Unique<T[]> pItems;
    unsigned long dwSize = 0;
};

#pragma GCC visibility pop
