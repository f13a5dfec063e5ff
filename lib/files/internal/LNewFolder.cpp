#include "files/internal/LNewFolder.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <port/bsd.h>
#include <port/files.h>
#include <sys/stat.h>

// The descriptor is one of its own: those of the copied tree may be closed, or lost, before the name is taken.
bool LNewFolder::Make(int nParentFolder, const char* szName) {
    struct stat status;
    if (fstatat(nParentFolder, szName, &status, AT_SYMLINK_NOFOLLOW) == 0 || errno != ENOENT)
        return false;
    parent.reset(port_openat(nParentFolder, ".", O_SEARCH | O_DIRECTORY));
    sName = szName;
    char szOwnName[kPortOwnNameSize] = "";
    if (parent)
        port_make_own_folder(parent.get(), szOwnName);
    sOwnName = szOwnName;
    return IsMade();
}

// A folder is never renamed over one that holds anything.
bool LNewFolder::TakeName() {
    if (!IsMade() || renameat(parent.get(), sOwnName.c_str(), parent.get(), sName.c_str()) != 0)
        return false;
    Forget();
    return true;
}
