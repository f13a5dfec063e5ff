// An owning pointer: deletes what it holds when it is destroyed.
//
// Thread-safety: none; the owner guards it. The pointer may be constructed at load time and destroyed at
// exit.
#pragma once

#include <utility>

#pragma GCC visibility push(default)

template <typename T>
class LPtr {
public:
    constexpr LPtr() = default;
    explicit LPtr(T* pObject) : pHeld(pObject) {}
    LPtr(const LPtr&) = delete;
    LPtr& operator=(const LPtr&) = delete;
    ~LPtr() { delete pHeld; }

    T* Get() const { return pHeld; }
    T* operator->() const { return pHeld; }
    T& operator*() const { return *pHeld; }
    explicit operator bool() const { return pHeld != nullptr; }

    // Deletes what is held and holds the new object, or nothing. The pointer already shows the new object
    // while the old one is destroyed.
    void Reset(T* pObject = nullptr) { delete std::exchange(pHeld, pObject); }

    // Gives the object up to the caller; the pointer then holds nothing.
    T* Release() { return std::exchange(pHeld, nullptr); }

private:
    T* pHeld = nullptr;
};

#pragma GCC visibility pop
