#include <port/bsd.h>

#include <cerrno>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/OwnName.h"
#include "host/SystemCalls.h"

namespace {

constexpr int kLockFlags = O_SHLOCK | O_EXLOCK;

bool lock(int fd, int flags) {
    const int operation =
        ((flags & O_EXLOCK) != 0 ? LOCK_EX : LOCK_SH) | ((flags & O_NONBLOCK) != 0 ? LOCK_NB : 0);
    int result;
    do
        result = ::flock(fd, operation);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

// False when the path no longer leads to the open file: a former holder unlinked it before it let go.
bool stillNamed(int fd, const char* path) {
    struct stat open;
    struct stat named;
    return ::fstat(fd, &open) == 0 && ::stat(path, &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

int openThenLock(const char* path, int flags, mode_t mode) {
    for (;;) {
        port::UniqueFd fd(port::sys::open(path, flags & ~(kLockFlags | O_TRUNC), mode));
        if (!fd || !lock(fd.get(), flags))
            return -1;
        if (!stillNamed(fd.get(), path))
            continue;
        if ((flags & O_TRUNC) != 0 && ::ftruncate(fd.get(), 0) != 0)
            return -1;
        return fd.release();
    }
}

// The file is locked under another name and then linked to its own, so that nobody ever finds it unlocked.
int makeLocked(const char* path, int flags, mode_t mode) {
    port::OwnName name(AT_FDCWD, std::string(path) + ".");
    port::UniqueFd fd;
    const bool made = name.take([&](const char* temporary) {
        fd.reset(port::sys::open(temporary, (flags & ~kLockFlags) | O_NOFOLLOW, mode));
        return static_cast<bool>(fd);
    });
    return made && lock(fd.get(), flags) && ::link(name.get(), path) == 0 ? fd.release() : -1;
}

} // namespace

int port_open(const char* path, int flags, mode_t mode) {
    if ((flags & kLockFlags) == 0)
        return port::sys::open(path, flags, mode);
    constexpr int kMake = O_CREAT | O_EXCL;
    return (flags & kMake) == kMake ? makeLocked(path, flags, mode) : openThenLock(path, flags, mode);
}

int port_openat(int folder, const char* name, int flags, mode_t mode) {
    return port::sys::openat(folder, name, flags, mode);
}
