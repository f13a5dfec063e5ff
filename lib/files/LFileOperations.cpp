// The operations on single files and folders.
#include "files/LFile.h"

#include <CoreServices/CoreServices.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/files.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/LFolderIterator.h"
#include "platform/LCFURL.h"
#include "strings/LStringFormat.h"

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr char kTextEncodingAttribute[] = "com.apple.TextEncoding";
constexpr char kTextEncodingUTF8[] = "utf-8;134217984"; // the name, and the platform's number of the encoding

// The folder part of a longer path would be cut, and so might name another folder.
bool IsTooLong(const char* szPath) {
    return std::strlen(szPath) >= LPathBufferSize;
}

} // namespace

// What is missing is so by every name; only a path that the system refuses may be known to it in another form.
bool LFile::Exists(const char* szPath) {
    if (access(szPath, F_OK) == 0)
        return true;
    if (errno == ENOENT)
        return false;
    LCFURL url;
    url.CreateFromFullPath(szPath);
    FSRef reference;
    return url && CFURLGetFSRef(url.Get(), &reference);
}

char* LFile::MakeUniqueOrderedFilePath(char* szOut, const char* szFolder, const char* szName,
                                       const char* szExtension) {
    char szFolderCopy[LPathBufferSize];
    char szCandidate[LPathBufferSize];
    char szFormer[LPathBufferSize] = "";
    strlcpy(szFolderCopy, szFolder, sizeof szFolderCopy);
    _MakeFilePath(szOut, szFolderCopy, szName, szExtension);
    for (unsigned n = 0; Exists(szOut) && std::strcmp(szOut, szFormer) != 0; ++n) {
        strlcpy(szFormer, szOut, sizeof szFormer);
        tplsnprintf(szCandidate, sizeof szCandidate, "%s_%u", szName, n);
        _MakeFilePath(szOut, szFolderCopy, szCandidate, szExtension);
    }
    return szOut;
}

bool LFile::CopyFile(const char* szFrom, const char* szTo) {
    char szFolder[LPathBufferSize];
    char szName[LPathBufferSize];
    char szTarget[LPathBufferSize];
    _GetFolderFromPath(szFolder, szTo);
    _GetFileFromPath(szName, szTo);
    _MakeFilePath(szTarget, szFolder, szName, "");
    if (IsTooLong(szTo) || szName[0] == '\0')
        return false;
    return port_copy_file(AT_FDCWD, szFrom, AT_FDCWD, szTarget) ||
           (errno == ELOOP && port_copy_link(AT_FDCWD, szFrom, AT_FDCWD, szTarget));
}

bool LFile::CreateFolderTree(const char* szPath) {
    return _MakeParents(szPath) && mkdir(szPath, 0777) == 0;
}

bool LFile::_MakeParents(const char* szPath) {
    if (IsTooLong(szPath))
        return false;
    char szFolder[LPathBufferSize];
    char szParent[LPathBufferSize];
    std::size_t dwLength = strlcpy(szFolder, szPath, sizeof szFolder);
    while (dwLength > 1 && szFolder[dwLength - 1] == '/')
        szFolder[--dwLength] = '\0';
    _GetFolderFromPath(szParent, szFolder);
    return szParent[0] == '\0' || Exists(szParent) || CreateFolderTree(szParent);
}

void LFile::DeleteOldFiles(const char* szFolder, const char* szPattern, int nDays) {
    if (nDays < 1)
        return;
    const std::int64_t nCutOff = std::time(nullptr) - nDays * kSecondsPerDay;
    FolderIterator iterator;
    for (iterator.Open(szFolder, szPattern); iterator.IsOpen(); iterator.Next()) {
        std::int64_t nCreated = 0;
        if (!port_birth_time(iterator.GetDescriptor(), iterator.GetName(), &nCreated) || nCreated < nCutOff)
            unlinkat(iterator.GetDescriptor(), iterator.GetName(), 0);
    }
}

bool LFile::TestFileShareWriteBlocked(const char* szPath) {
    const port::UniqueFd file(port_open(szPath, O_RDONLY | O_NONBLOCK | O_EXLOCK));
    return !file && errno == EAGAIN;
}

bool LFile::TestFileLocked(const char* szPath) {
    return (port_file_flags(AT_FDCWD, szPath) & (UF_IMMUTABLE | SF_IMMUTABLE)) != 0;
}

int LFile::SetFileAttributeTextEncodingUTF8(const char* szPath) {
    return port_setxattr(szPath, kTextEncodingAttribute, kTextEncodingUTF8, std::strlen(kTextEncodingUTF8), 0,
                         0);
}

bool LFile::IsErrorSharingViolation() {
    return errno == EACCES || errno == EAGAIN;
}

bool LFile::IsErrorAlreadyExists() {
    return errno == EEXIST;
}

bool LFile::IsErrorPermissionDenied() {
    return errno == EACCES;
}

bool LFile::IsErrorFileNotFound() {
    return errno == ENOENT;
}
