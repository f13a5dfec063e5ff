#include "threads/LLockFile.h"

#include <cerrno>
#include <fcntl.h>
#include <port/bsd.h>
#include <port/internal/exported.h>
#include <sys/file.h>
#include <unistd.h>

#include "base/LSleep.h"
#include "files/LFile.h"

bool LLockFile::Lock(const char* szPathToLock) {
    _Release();
    LFile::_ApplyNewFileExtension(szPath, szPathToLock, ".lck");
    nDescriptor = port_open(szPath, O_RDWR | O_CREAT | O_TRUNC | O_EXLOCK | O_NONBLOCK | O_NOFOLLOW, 0777);
    return nDescriptor != -1 || errno != EWOULDBLOCK;
}

// Unlinked while it is still locked: whoever opens the path afterwards makes a new file, and nobody can hold
// a lock on the name that somebody else is about to remove.
void LLockFile::_Release() {
    if (nDescriptor == -1)
        return;
    unlink(szPath);
    close(nDescriptor);
    nDescriptor = -1;
}

template <typename>
int flocktimed(int nDescriptor, int nOperation, unsigned int timeout) {
    unsigned long long qwDelay = timeout / 32 + 1;
    do {
        if (flock(nDescriptor, nOperation) == 0)
            return 0;
        if (errno != EWOULDBLOCK)
            return -1;
        LSleepMilliseconds(static_cast<unsigned int>(qwDelay));
        qwDelay *= 2;
    } while (qwDelay < timeout);
    errno = EWOULDBLOCK;
    return -1;
}
template PORT_EXPORTED int flocktimed<>(int, int, unsigned int);
