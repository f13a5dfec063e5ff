// What counts its holders, each of them a `port::Reference`, and goes with the last one. Internal to the library.
//
// Thread-safety: the count, full.
#pragma once

#include <port/Atomic.h>
#include <port/Reference.h>

class LCounted {
public:
    LCounted(const LCounted&) = delete;
    LCounted& operator=(const LCounted&) = delete;

    void retain() const { dwHolders.fetch_add(1, port::Order::Relaxed); }
    void release() const;

protected:
    LCounted() = default; // the first reference is its maker's
    virtual ~LCounted() = default;

private:
    mutable port::Atomic<unsigned long> dwHolders{1};
};
