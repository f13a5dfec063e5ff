#include "files/internal/LTreeTarget.h"

#include <cerrno>

bool LTreeTarget::Open(int nParent, const char* szName, bool bFollow) {
    if (!folders.Push(nParent, szName, bFollow))
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
