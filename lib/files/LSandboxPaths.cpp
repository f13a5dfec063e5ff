// The paths of the sandbox, and the filters of file panels.
#include "files/LFile.h"

#include <Foundation/Foundation.h>
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <port/bsd.h>
#include <strings.h>
#include <sys/stat.h>

#include "base/LLimits.h"
#include "files/LSandboxBookmarkManager.h"

namespace {

// A folder of the real home.
void GetHomeFolderNonSandboxed(char* szOut, const char* szName) {
    char szHome[LPathBufferSize];
    LFile::GetUserFolderNonSandboxed(szHome);
    LFile::_MakeFilePath(szOut, szHome, szName, "");
}

// The place outside the sandbox to which the path leads, its links followed.
bool ResolveOutsideSandbox(char* szOut, const char* szPath) {
    char szResolved[PATH_MAX];
    szOut[0] = '\0';
    if (realpath(szPath, szResolved) == nullptr || LFile::IsPathInSandbox(szResolved))
        return false;
    strlcpy(szOut, szResolved, LPathBufferSize);
    return true;
}

bool IsLink(const char* szPath) {
    struct stat status;
    return lstat(szPath, &status) == 0 && S_ISLNK(status.st_mode);
}

} // namespace

bool LFile::IsPathInSandbox(const char* szPath) {
    char szHome[LPathBufferSize];
    GetUserFolder(szHome);
    return szHome[0] != '\0' && strncasecmp(szPath, szHome, std::strlen(szHome)) == 0;
}

bool LFile::MakeNonSandboxedFilePath(char* szOut, const char* szPath) {
    char szPathCopy[LPathBufferSize]; // szOut may be szPath
    strlcpy(szPathCopy, szPath, sizeof szPathCopy);
    if (Exists(szPathCopy))
        return ResolveOutsideSandbox(szOut, szPathCopy);
    szOut[0] = '\0';
    if (!IsPathInSandbox(szPathCopy))
        return false;
    char szHome[LPathBufferSize];
    GetUserFolder(szHome);
    const char* pRest = szPathCopy + std::strlen(szHome);
    if (*pRest == '/')
        ++pRest;
    while (const char* const pEnd = std::strchr(pRest, '/')) {
        char szComponent[LPathBufferSize];
        char szLink[LPathBufferSize];
        strlcpy(szComponent, pRest, static_cast<std::size_t>(pEnd - pRest) + 1);
        _MakeFilePath(szLink, szHome, szComponent, "");
        pRest = pEnd + 1;
        if (!IsLink(szLink))
            continue;
        if (!ResolveOutsideSandbox(szOut, szLink))
            return false;
        _MakeFilePath(szOut, szOut, pRest, "");
        return true;
    }
    return false;
}

void LFile::GetUserDownloadFolderNonSandboxed(char* szOut) {
    GetHomeFolderNonSandboxed(szOut, "Downloads");
}

void LFile::GetUserVideoFolderNonSandboxed(char* szOut) {
    GetHomeFolderNonSandboxed(szOut, "Movies");
}

void LFile::GetUserMusicFolderNonSandboxed(char* szOut) {
    GetHomeFolderNonSandboxed(szOut, "Music");
}

void LFile::GetUserPicturesFolderNonSandboxed(char* szOut) {
    GetHomeFolderNonSandboxed(szOut, "Pictures");
}

void ParseFileTypes(NSMutableArray* pTypes, const char* szFilter) {
    const char* pDescription = szFilter;
    while (*pDescription != '\0') {
        const char* const pPatterns = pDescription + std::strlen(pDescription) + 1;
        if (*pPatterns == '\0')
            return;
        const char* pFound = std::strstr(pPatterns, "*.");
        while (pFound != nullptr) {
            const char* const pType = pFound + 2;
            const std::size_t dwLength = std::strcspn(pType, ";");
            char szType[LPathBufferSize];
            strlcpy(szType, pType, std::min(dwLength + 1, sizeof szType));
            const NSRef<NSString> type = NSString::stringWithUTF8String(szType);
            if (type && !type->isEqualToString("*"))
                pTypes->addObject(type);
            pFound = std::strstr(pType + dwLength, "*.");
        }
        pDescription = pPatterns + std::strlen(pPatterns) + 1;
    }
}
