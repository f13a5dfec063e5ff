#include "files/internal/LTreeTarget.h"

#include <cerrno>
#include <fcntl.h>

bool LTreeTarget::Open(const char* szPath) {
    if (!folders.Push(AT_FDCWD, szPath, true))
        return false;
    rootDevice = folders.GetDevice();
    rootInode = folders.GetInode();
    return true;
}

bool LTreeTarget::IsRoot(const struct stat& status) const {
    return IsOpen() && status.st_dev == rootDevice && status.st_ino == rootInode;
}

bool LTreeTarget::Enter(const char* szName, const struct stat& source) {
    if (IsRoot(source)) {
        errno = ELOOP;
        return false;
    }
    mkdirat(GetTop(), szName, 0777);
    return folders.Push(AT_FDCWD, szName);
}
