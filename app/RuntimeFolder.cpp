#include "RuntimeFolder.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <port/runtime_folder.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::string OctalMode(mode_t dwMode) {
    char szMode[16];
    snprintf(szMode, sizeof szMode, "%04o", static_cast<unsigned>(dwMode));
    return szMode;
}

// The folder that is missing will be made, where that can be done.
std::string ProblemOfMissing(const LRuntimeFolder& folder) {
    const std::string sParent = folder.sPath.substr(0, folder.sPath.rfind('/') + 1);
    return access(sParent.c_str(), W_OK | X_OK) == 0
               ? ""
               : folder.sPath + " cannot be made: " + sParent + ": " + strerror(errno);
}

std::string ProblemOf(const LRuntimeFolder& folder, int nError) {
    switch (nError) {
    case ENOENT:
        return ProblemOfMissing(folder);
    case ENOTDIR:
        return folder.sPath + (S_ISLNK(folder.dwMode) ? " is a link" : " is no folder");
    case EPERM:
        return folder.sPath + " belongs to user " + std::to_string(folder.nOwner);
    case EACCES:
        return folder.sPath + " has mode " + OctalMode(folder.dwMode & 07777) + ", not 0700";
    default:
        return folder.sPath + ": " + strerror(nError);
    }
}

} // namespace

LRuntimeFolder LookAtRuntimeFolder() {
    LRuntimeFolder folder;
    char szPath[PATH_MAX];
    const int nError = port_runtime_folder(szPath, sizeof szPath) ? 0 : errno;
    folder.sPath = szPath;
    struct stat status;
    if (lstat(szPath, &status) == 0) {
        folder.bExists = true;
        folder.nOwner = status.st_uid;
        folder.dwMode = status.st_mode;
    }
    if (nError != 0)
        folder.sProblem = ProblemOf(folder, nError);
    return folder;
}
