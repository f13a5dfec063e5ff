// Locks on files between processes: a lock file beside a path, and `flock` with a bounded retry.
//
// Thread-safety: an object belongs to one thread. `flocktimed` is reentrant.
#pragma once

#include "base/LLimits.h"

#pragma GCC visibility push(default)

class LLockFile {
public:
    LLockFile() { szPath[0] = '\0'; }
    LLockFile(const LLockFile&) = delete;
    LLockFile& operator=(const LLockFile&) = delete;
    // Gives a held lock back and removes its file.
    ~LLockFile() { _Release(); }

    // Locks the path: its extension is replaced by ".lck" (cut at 259 bytes) and that file, made when it is
    // missing, is held open under an exclusive lock. A lock that the object held before is given back first.
    // Does not wait. False only when somebody else holds the lock; true without a lock when no lock file can
    // be made, because the folder cannot be written or a link is in its place, which is not followed: that does
    // not stop the caller.
    bool Lock(const char* szPathToLock);

    bool IsHeld() const { return nDescriptor != -1; }

private:
    void _Release();

    int nDescriptor = -1;
    char szPath[LPathBufferSize];
};

// `flock` with a non-blocking operation (LOCK_SH | LOCK_NB or LOCK_EX | LOCK_NB), tried again after delays
// that begin at timeout / 32 + 1 milliseconds and double while they are below the time-out. 0, or -1 with
// errno: EWOULDBLOCK when the lock stayed with somebody else, else what `flock` said. Blocks for less than
// about twice the time-out. A template, so that it yields to a program's own function of
// that name.
template <typename = void>
int flocktimed(int nDescriptor, int nOperation, unsigned int timeout);

#pragma GCC visibility pop
