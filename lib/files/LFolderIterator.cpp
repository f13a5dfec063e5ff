#include "files/LFolderIterator.h"

#include <cstring>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <sys/stat.h>

#include "strings/LStringUtilities.h"

namespace {

constexpr char kResourceFolder[] = "__MACOSX";

} // namespace

LFile::FolderIterator::FolderIterator() {
    szName[0] = szFolder[0] = szPattern[0] = szLowerPattern[0] = '\0';
}

LFile::FolderIterator::~FolderIterator() {
    _Close();
}

void LFile::FolderIterator::_Close() {
    if (pStream != nullptr)
        closedir(pStream);
    pStream = nullptr;
}

bool LFile::FolderIterator::Open(const char* szFolderPath, const char* szNamePattern) {
    _Close();
    szName[0] = '\0';
    strlcpy(szFolder, szFolderPath, sizeof szFolder);
    strlcpy(szPattern, szNamePattern, sizeof szPattern);
    strlcpy(szLowerPattern, szPattern, sizeof szLowerPattern);
    strlwr(szLowerPattern);
    port::UniqueFd folder(port_open(szFolderPath, O_RDONLY | O_DIRECTORY | O_NONBLOCK));
    pStream = folder ? fdopendir(folder.get()) : nullptr;
    if (pStream != nullptr)
        folder.release(); // it is the stream's
    return Next();
}

bool LFile::FolderIterator::Open(const char* szPath) {
    struct stat status;
    if (std::strlen(szPath) >= LPathBufferSize || stat(szPath, &status) != 0 || !S_ISREG(status.st_mode))
        return Open(szPath, "*");
    char szParent[LPathBufferSize];
    char szFile[LPathBufferSize];
    _GetFolderFromPath(szParent, szPath);
    _GetFileFromPath(szFile, szPath);
    return Open(szParent[0] != '\0' ? szParent : ".", szFile);
}

bool LFile::FolderIterator::Next() {
    while (_GetNextFile())
        if (_Matches(szName))
            return true;
    return false;
}

bool LFile::FolderIterator::_GetNextFile() {
    szName[0] = '\0';
    if (pStream == nullptr)
        return false;
    const dirent* pEntry = readdir(pStream);
    if (pEntry == nullptr) {
        _Close();
        return false;
    }
    strlcpy(szName, pEntry->d_name, sizeof szName);
    cType = pEntry->d_type;
    return true;
}

bool LFile::FolderIterator::_Matches(const char* szEntryName) const {
    if (szEntryName[0] == '.' || std::strncmp(szEntryName, kResourceFolder, sizeof kResourceFolder - 1) == 0)
        return false;
    if (std::strcmp(szPattern, "*") == 0)
        return true;
    char szLowerName[LPathBufferSize];
    strlcpy(szLowerName, szEntryName, sizeof szLowerName);
    return IsMatch<char>(szLowerPattern, strlwr(szLowerName));
}

bool LFile::FolderIterator::IsFolder() const {
    if (pStream == nullptr || szName[0] == '\0')
        return false;
    if (cType != DT_UNKNOWN && cType != DT_LNK)
        return cType == DT_DIR;
    struct stat status;
    return fstatat(dirfd(pStream), szName, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

bool LFile::FolderIterator::IsLink() const {
    if (pStream == nullptr || szName[0] == '\0')
        return false;
    if (cType != DT_UNKNOWN)
        return cType == DT_LNK;
    struct stat status;
    return fstatat(dirfd(pStream), szName, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode);
}
