// A recursive mutex inside one process, and its scope.
//
// Thread-safety: that is what it is for. The thread that locks it may lock it again and unlocks it as often.
#pragma once

#include <pthread.h>

#pragma GCC visibility push(default)

class LLockObject {
public:
    LLockObject() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    LLockObject(const LLockObject&) = delete;
    LLockObject& operator=(const LLockObject&) = delete;
    ~LLockObject() { pthread_mutex_destroy(&mutex); }

    // Blocks until the lock is had.
    void Lock() { pthread_mutex_lock(&mutex); }
    void Unlock() { pthread_mutex_unlock(&mutex); }

private:
    pthread_mutex_t mutex;
};

// Holds a lock for the life of a block.
template <typename TLock>
class LLockScope {
public:
    explicit LLockScope(TLock& lockToHold) : lock(lockToHold) { lock.Lock(); }
    LLockScope(const LLockScope&) = delete;
    LLockScope& operator=(const LLockScope&) = delete;
    ~LLockScope() { lock.Unlock(); }

private:
    TLock& lock;
};

#pragma GCC visibility pop
