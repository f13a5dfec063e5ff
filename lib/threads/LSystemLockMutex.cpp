#include "threads/LSystemLockMutex.h"

#include <cerrno>
#include <cstdint>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>
#include <utility>

#include "base/LSleep.h"

namespace {

constexpr unsigned int kRetryMilliseconds = 10;
constexpr std::uint32_t kKeyStart = 11223;

// The caller of `semctl` defines its fourth argument.
union SemaphoreArgument {
    int value;
    semid_ds* status;
    unsigned short* values;
};

// -1 when the semaphore can neither be made nor opened. Whoever makes it also gives it its first unit; until
// then others find it taken, which is what they should.
int OpenSemaphore(key_t key) {
    if (key == IPC_PRIVATE)
        return -1;
    const int nMade = semget(key, 1, IPC_CREAT | IPC_EXCL | 0666);
    if (nMade < 0)
        return errno == EEXIST ? semget(key, 0, 0) : -1;
    SemaphoreArgument one{};
    one.value = 1;
    semctl(nMade, 0, SETVAL, one);
    return nMade;
}

} // namespace

key_t LSystemLockMutex::MakeKey(const char* szName) {
    std::uint32_t dwKey = kKeyStart;
    for (const char* p = szName; *p != '\0'; ++p)
        dwKey = dwKey * 32 + static_cast<std::uint32_t>(static_cast<signed char>(*p));
    return static_cast<key_t>(dwKey);
}

LSystemLockMutex::LSystemLockMutex(const char* szName)
    : key(MakeKey(szName)), nSemaphores(OpenSemaphore(key)) {}

LSystemLockMutex::~LSystemLockMutex() {
    if (bHeld)
        Release();
}

// SEM_UNDO, with taking and giving back alike: the kernel undoes what a process that dies has left.
int LSystemLockMutex::_Operate(short nChange, short nFlags) const {
    sembuf operation{0, nChange, nFlags};
    return semop(nSemaphores, &operation, 1);
}

bool LSystemLockMutex::Lock(unsigned int timeout) {
    for (;;) {
        if (_Operate(-1, IPC_NOWAIT | SEM_UNDO) == 0) {
            bHeld = true;
            return true;
        }
        if (errno != EAGAIN)
            return false;
        LSleepMilliseconds(kRetryMilliseconds);
        if (timeout <= kRetryMilliseconds)
            return false;
        timeout -= kRetryMilliseconds;
    }
}

void LSystemLockMutex::LockForever() {
    if (nSemaphores == -1)
        return;
    int nResult;
    do
        nResult = _Operate(-1, SEM_UNDO);
    while (nResult != 0 && errno == EAGAIN);
    bHeld = nResult == 0;
}

void LSystemLockMutex::Release() {
    const bool bHeldHere = std::exchange(bHeld, false);
    if (nSemaphores == -1)
        return;
    const bool bNothingHeld =
        semctl(nSemaphores, 0, GETVAL) > 0 && semctl(nSemaphores, 0, GETPID) == static_cast<int>(getpid());
    // Giving back what another holds would let two in.
    if (!bNothingHeld && (!bHeldHere || _Operate(1, SEM_UNDO) == 0)) {
        nSemaphores = -1;
        return;
    }
    semctl(nSemaphores, 0, IPC_RMID);
    nSemaphores = -1;
}
