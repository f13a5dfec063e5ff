// A lock between processes of one machine, on a System V semaphore whose key comes from a name.
//
// Thread-safety: one object belongs to one thread; two objects of one name exclude each other, also inside
// one process. The lock is not recursive. The kernel gives it back when its holder dies.
//
// Time-outs are milliseconds, without a value for "no limit".
#pragma once

#include <sys/types.h>

#pragma GCC visibility push(default)

class LSystemLockMutex {
public:
    // Opens the semaphore of the name, making it when there is none. An object whose semaphore cannot be had
    // takes no lock.
    explicit LSystemLockMutex(const char* szName);
    LSystemLockMutex(const LSystemLockMutex&) = delete;
    LSystemLockMutex& operator=(const LSystemLockMutex&) = delete;
    // Gives a held lock back.
    ~LSystemLockMutex();

    // Tries every 10 ms until the time has passed; at least once, and a failed attempt costs its 10 ms. False
    // when the lock was not had.
    bool Lock(unsigned int timeout);

    // Blocks until the lock is had. A POSIX signal, or the removal of the semaphore, ends the wait without
    // it.
    void LockForever();

    // The end of use, once, after a successful lock: gives the lock back. The object takes no lock afterwards.
    // Without a lock nothing is given back; and when this process was the last to use the semaphore, and nobody
    // holds it, it is removed under everybody who has it open.
    void Release();

    // 11223, then for each byte: times 32 plus the byte, signed, wrapping at 32 bits. "UID" gives 367844708.
    static key_t MakeKey(const char* szName);

private:
    int _Operate(short nChange, short nFlags) const;

    key_t key;
    int nSemaphores = -1;
    bool bHeld = false;
};

#pragma GCC visibility pop
