// Thread-safety: touches only its arguments.
#pragma once

#include <cstring>
#include <port/Unique.h>

namespace port {

// An array of copies of plain values; of none, with null allowed then, one that is not null.
template <typename T>
Unique<T[]> copied(const T* from, unsigned long count) {
    Unique<T[]> copy(new T[count]);
    if (count != 0)
        std::memcpy(copy.get(), from, count * sizeof(T));
    return copy;
}

} // namespace port
