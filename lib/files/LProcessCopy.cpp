#include "files/LProcessCopy.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/transfer.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/LLimits.h"
#include "files/LFile.h"
#include "files/LFolderIterator.h"
#include "files/LReadFile.h"
#include "files/LWriteFile.h"
#include "threads/LLockFile.h"
#include "threads/LProcessInterface.h"

namespace {

constexpr unsigned int kLockTimeout = 1000; // milliseconds

bool IsSameFile(const struct stat& first, const struct stat& second) {
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Moves size bytes by pieces; Move takes the bytes done so far and those wanted, and returns the bytes moved.
template <typename Move>
int MoveByPieces(LProcessInterface& process, unsigned long size, Move move) {
    for (unsigned long dwDone = 0; dwDone < size;) {
        if (process.IsToStop())
            return LProcessStopped;
        const unsigned long dwPiece = std::min(size - dwDone, LProcessFilePiece);
        if (move(dwDone, dwPiece) != static_cast<ssize_t>(dwPiece))
            return LProcessFailed;
        dwDone += dwPiece;
        process.SetProgress(static_cast<double>(dwDone) / static_cast<double>(size));
    }
    return LProcessFinished;
}

// The data of one file on their way into another one.
class DataCopy {
public:
    DataCopy(int nSourceDescriptor, int nTargetDescriptor)
        : nSource(nSourceDescriptor), nTarget(nTargetDescriptor) {}

    int Run(LProcessInterface& process, unsigned long long qwSize) {
        const double dStep =
            qwSize < LProcessCopyPiece ? 1.0 : LProcessCopyPiece / static_cast<double>(qwSize);
        double dProgress = 0.0;
        while (qwSize != 0) {
            if (process.IsToStop())
                return LProcessStopped;
            const unsigned long dwPiece = std::min<unsigned long long>(qwSize, LProcessCopyPiece);
            if (!_CopyPiece(dwPiece))
                return LProcessFailed;
            process.SetProgress(dProgress);
            dProgress += dStep;
            qwSize -= dwPiece;
        }
        return LProcessFinished;
    }

private:
    // What the system does not copy by itself goes through the buffer: that tells an end from a refusal.
    bool _CopyPiece(unsigned long dwSize) {
        const ssize_t nCopied = bDirect ? port_copy_range(nSource, nTarget, dwSize) : 0;
        bDirect = bDirect && nCopied >= 0;
        const ssize_t nLeft = static_cast<ssize_t>(dwSize) - std::max<ssize_t>(nCopied, 0);
        return nLeft == 0 || (port_read(nSource, szBuffer, static_cast<std::size_t>(nLeft)) == nLeft &&
                              port_write(nTarget, szBuffer, static_cast<std::size_t>(nLeft)) == nLeft);
    }

    int nSource;
    int nTarget;
    bool bDirect = true;
    char szBuffer[LProcessCopyPiece];
};

void ReportStart(LProcessInterface& process, const char* szTarget) {
    char szName[LPathBufferSize];
    LFile::_GetFileFromPath(szName, szTarget);
    process.SetStatus("Copy File", 0);
    process.SetStatus(szName, 1);
    process.SetProgress(0.0);
}

// A bare name stands for a file in the current folder.
bool HasFolder(const char* szPath) {
    char szFolder[LPathBufferSize];
    LFile::_GetFolderFromPath(szFolder, szPath);
    return szFolder[0] == '\0' || LFile::Exists(szFolder);
}

// Whole seconds; the target keeps its own time of access.
void SetTimes(int nTarget, const struct stat& source) {
    struct stat target;
    if (fstat(nTarget, &target) != 0)
        return;
    const timeval times[2] = {{target.st_atime, 0}, {source.st_mtime, 0}};
    futimes(nTarget, times);
}

bool IsDots(const char* szName) {
    return std::strcmp(szName, ".") == 0 || std::strcmp(szName, "..") == 0;
}

// False when the path does not fit: cut, it would be another one's.
bool Join(char* szOut, const char* szFolder, const char* szName) {
    return LFile::_MakeFilePath(szOut, szFolder, szName, "") == std::strlen(szName);
}

unsigned long CountEntries(const char* szFolder) {
    unsigned long dwCount = 0;
    LFile::FolderIteratorAllFiles iterator;
    for (iterator.Open(szFolder); iterator.IsOpen(); iterator.Next())
        dwCount += IsDots(iterator.GetName()) ? 0 : 1;
    return dwCount;
}

// The copy of one tree; szRootTarget is where it goes to.
class TreeCopy {
public:
    explicit TreeCopy(const char* szTarget) : szRootTarget(szTarget) {}

    int Run(LProcessInterface& process, const LProcessCopyFolder& copy) {
        if (!_IsSource(copy.szSource))
            return LProcessFailed;
        const double dShare = 1.0 / static_cast<double>(std::max(CountEntries(copy.szSource), 1UL));
        unsigned long dwEntry = 0;
        LFile::FolderIteratorAllFiles iterator;
        for (iterator.Open(copy.szSource); iterator.IsOpen(); iterator.Next()) {
            if (IsDots(iterator.GetName()))
                continue;
            LProcessInterfaceSubProcess step(process, static_cast<double>(dwEntry++) * dShare, dShare);
            const int nResult = _CopyEntry(step, copy, iterator);
            if (nResult != LProcessFinished)
                return nResult;
        }
        return LProcessFinished;
    }

private:
    // The target may come into being below the source during the copy, which would then go on for ever.
    bool _IsSource(const char* szFolder) const {
        struct stat status;
        struct stat target;
        return stat(szFolder, &status) == 0 && S_ISDIR(status.st_mode) &&
               !(stat(szRootTarget, &target) == 0 && IsSameFile(status, target));
    }

    int _CopyEntry(LProcessInterface& step, const LProcessCopyFolder& copy,
                   const LFile::FolderIterator& iterator) {
        char szSource[LPathBufferSize];
        char szTarget[LPathBufferSize];
        if (!Join(szSource, copy.szSource, iterator.GetName()) ||
            !Join(szTarget, copy.szTarget, iterator.GetName()))
            return LProcessFailed;
        if (!iterator.IsFolder())
            return Process(step, LProcessCopyFile{szSource, szTarget});
        LFile::CreateFolderTree(szTarget);
        return Run(step, {szSource, szTarget});
    }

    const char* szRootTarget;
};

} // namespace

int LProcessFileRead(LProcessInterface& process, LReadFileRef& file, const void* buffer, unsigned long size) {
    char* const pTo = static_cast<char*>(const_cast<void*>(buffer));
    return MoveByPieces(process, size, [&](unsigned long dwDone, unsigned long dwPiece) {
        return port_read(file.GetDescriptor(), pTo + dwDone, dwPiece);
    });
}

int LProcessFileWrite(LProcessInterface& process, LWriteFileRef& file, const void* buffer,
                      unsigned long size) {
    const char* const pFrom = static_cast<const char*>(buffer);
    return MoveByPieces(process, size, [&](unsigned long dwDone, unsigned long dwPiece) {
        return port_write(file.GetDescriptor(), pFrom + dwDone, dwPiece);
    });
}

int Process(LProcessInterface& process, const LProcessCopyFile& copy) {
    ReportStart(process, copy.szTarget);
    if (!HasFolder(copy.szTarget))
        return LProcessFailed;
    // Without blocking: a pipe in the place of the source must not hold the copy up.
    const port::UniqueFd source(open(copy.szSource, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    flocktimed(source.get(), LOCK_SH | LOCK_NB, kLockTimeout);
    struct stat status;
    if (fstat(source.get(), &status) != 0 || S_ISDIR(status.st_mode))
        return LProcessFailed;
    port::UniqueFd target(open(copy.szTarget, O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    struct stat old;
    if (fstat(target.get(), &old) != 0 || IsSameFile(status, old))
        return LProcessFailed;
    flocktimed(target.get(), LOCK_EX | LOCK_NB, kLockTimeout);
    [[maybe_unused]] const int nIgnored = ftruncate(target.get(), 0); // a device has no length to cut

    const int nResult =
        DataCopy(source.get(), target.get()).Run(process, static_cast<unsigned long long>(status.st_size));
    if (nResult == LProcessFinished)
        SetTimes(target.get(), status);
    target.reset();
    if (nResult != LProcessFinished && S_ISREG(old.st_mode))
        unlink(copy.szTarget);
    return nResult;
}

int Process(LProcessInterface& process, const LProcessCopyFolder& copy) {
    return TreeCopy(copy.szTarget).Run(process, copy);
}
