// A growable list of owned, zero-terminated strings, in the order in which they were added.
//
// Thread-safety: none; the owner guards it.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <port/Unique.h>

#pragma GCC visibility push(default)

// Strings that fit into a new list.
constexpr std::uint32_t LStringListStartCapacity = 255;

template <typename T>
class LStringListTemplate {
public:
    LStringListTemplate()
        : pItems(new T* [LStringListStartCapacity + 1] {}), dwCapacity(LStringListStartCapacity) {}
    LStringListTemplate(const LStringListTemplate&) = delete;
    LStringListTemplate& operator=(const LStringListTemplate&) = delete;
    ~LStringListTemplate() { Clear(); }

    std::uint32_t GetCount() const { return dwCount; }
    // Strings that fit before the array of items grows.
    std::uint32_t GetCapacity() const { return dwCapacity; }
    // The strings, and null after the last one. Valid until the next Add.
    T* const* GetItems() const { return pItems.get(); }
    // The string at index, at most the count: null at the count.
    T* operator[](std::uint32_t index) const { return pItems[index]; }

    // Appends a string of `size` units, the terminator's included, and returns it, empty, for the caller to
    // fill; it stays the list's. Never null: an allocation that fails throws std::bad_alloc and leaves the
    // list as it was. A size of 0 counts as 1.
    T* Add(unsigned long size) {
        port::Unique<T[]> pNew(new T[size != 0 ? size : 1]);
        pNew[0] = 0;
        if (dwCount == dwCapacity)
            _Grow();
        pItems[dwCount] = pNew.release();
        pItems[++dwCount] = nullptr;
        return pItems[dwCount - 1];
    }

    // Releases the string at index and moves the following ones down; an index at or past the count does
    // nothing.
    void Delete(unsigned long index) {
        if (index >= dwCount)
            return;
        delete[] pItems[index];
        std::memmove(&pItems[index], &pItems[index + 1], (dwCount - index) * sizeof(T*));
        --dwCount;
    }

    // Releases every string; the capacity stays.
    void Clear() {
        for (std::uint32_t i = 0; i < dwCount; ++i)
            delete[] pItems[i];
        dwCount = 0;
        pItems[0] = nullptr;
    }

private:
    void _Grow() {
        const unsigned long dwSlots = 8UL * dwCount + 8;
        if (dwSlots > UINT32_MAX)
            throw std::bad_alloc();
        port::Unique<T*[]> pNew(new T*[dwSlots]);
        std::memcpy(pNew.get(), pItems.get(), dwCount * sizeof(T*));
        pItems = std::move(pNew);
        dwCapacity = static_cast<std::uint32_t>(dwSlots - 1);
    }

    port::Unique<T*[]> pItems;
    std::uint32_t dwCount = 0;
    std::uint32_t dwCapacity;
};

#pragma GCC visibility pop
