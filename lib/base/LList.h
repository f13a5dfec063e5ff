// An intrusive singly linked list that owns its elements. Every element type carries its own link, a member
// `T* pNext`; new elements go to the head.
//
// Thread-safety: none; the owner guards it.
#pragma once

#include <cstddef>

#pragma GCC visibility push(default)

template <typename T>
class LList {
public:
    LList() = default;
    LList(const LList&) = delete;
    LList& operator=(const LList&) = delete;
    ~LList() { Clear(); }

    T* GetFirst() const { return pFirst; }
    bool IsEmpty() const { return pFirst == nullptr; }

    // Takes ownership of an element that is in no list.
    void AddHead(T* pElement) {
        pElement->pNext = pFirst;
        pFirst = pElement;
    }

    // Unlinks the element and gives it back to the caller; null when it is not in this list. Walks the list.
    T* Detach(T* pElement) {
        T* pBefore = nullptr;
        for (T* pWalk = pFirst; pWalk != nullptr; pBefore = pWalk, pWalk = _Following(pWalk)) {
            if (pWalk != pElement)
                continue;
            if (pBefore == nullptr)
                pFirst = _Following(pElement);
            else
                pBefore->pNext = pElement->pNext;
            pElement->pNext = nullptr;
            return pElement;
        }
        return nullptr;
    }

    // Destroys all elements, from the head; each is unlinked before it is destroyed.
    void Clear() {
        while (pFirst != nullptr)
            delete Detach(pFirst);
    }

private:
    // The link may be declared in a base class of T; what it holds is always a T.
    static T* _Following(T* pElement) { return static_cast<T*>(pElement->pNext); }

    T* pFirst = nullptr;
};

// A place in a list: the current element, null at the end.
template <typename T>
class LListIterator {
public:
    explicit LListIterator(LList<T>& list) : loElements(list), pCurrent(list.GetFirst()) {}

    T* Get() const { return pCurrent; }
    void Next() {
        if (pCurrent != nullptr)
            pCurrent = static_cast<T*>(pCurrent->pNext);
    }

    // Unlinks the current element, moves on to the next one, and returns the element, now the caller's; null
    // at the end or when the element is not in the list.
    T* Detach() {
        T* pElement = pCurrent;
        if (pElement == nullptr)
            return nullptr;
        T* pFollowing = static_cast<T*>(pElement->pNext);
        if (loElements.Detach(pElement) == nullptr)
            return nullptr;
        pCurrent = pFollowing;
        return pElement;
    }

    // Detaches the current element and destroys it.
    void Delete() { delete Detach(); }

private:
    LList<T>& loElements;
    T* pCurrent;
};

#pragma GCC visibility pop
