// An owning pointer: deletes what it holds when it is destroyed.
//
// Thread-safety: none; the owner guards it. The pointer may be constructed at load time and destroyed at
// exit.
#pragma once

#include <utility>

template <typename T>
class LPtr {
public:
    constexpr LPtr() = default;
    explicit LPtr(T* pObject) : _pObject(pObject) {}
    LPtr(const LPtr&) = delete;
    LPtr& operator=(const LPtr&) = delete;
    ~LPtr() { delete _pObject; }

    T* Get() const { return _pObject; }
    T* operator->() const { return _pObject; }
    T& operator*() const { return *_pObject; }
    explicit operator bool() const { return _pObject != nullptr; }

    // Deletes what is held and holds the new object, or nothing. The pointer already shows the new object
    // while the old one is destroyed.
    void Reset(T* pObject = nullptr) { delete std::exchange(_pObject, pObject); }

    // Gives the object up to the caller; the pointer then holds nothing.
    T* Release() { return std::exchange(_pObject, nullptr); }

private:
    T* _pObject = nullptr;
};
