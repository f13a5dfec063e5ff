#include "files/LProcessCopy.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <port/DataCopy.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/files.h>
#include <port/transfer.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include "base/LLimits.h"
#include "files/LFile.h"
#include "files/LReadFile.h"
#include "files/LWriteFile.h"
#include "files/internal/LTreeTarget.h"
#include "files/internal/LTreeWalk.h"
#include "threads/LLockFile.h"
#include "threads/LProcessInterface.h"

namespace {

constexpr unsigned int kLockTimeout = 1000; // milliseconds
constexpr off_t kPiece = LProcessCopyPiece;
// Without blocking: a pipe in the place of the source must not hold the copy up.
constexpr int kOpenSource = O_RDONLY | O_NONBLOCK | O_NOCTTY;

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

int MoveData(LProcessInterface& process, port::DataCopy& data, off_t nSize) {
    const double dStep = nSize < kPiece ? 1.0 : static_cast<double>(kPiece) / static_cast<double>(nSize);
    double dProgress = 0.0;
    while (nSize != 0) {
        if (process.IsToStop())
            return LProcessStopped;
        const off_t nPiece = std::min(nSize, kPiece);
        const off_t nMoved = data.move(nPiece);
        if (nMoved != nPiece) {
            errno = nMoved < 0 ? errno : ENODATA; // the source became shorter
            return LProcessFailed;
        }
        process.SetProgress(dProgress);
        dProgress += dStep;
        nSize -= nPiece;
    }
    return data.finish() ? LProcessFinished : LProcessFailed;
}

// Has its name from the start, and loses it again unless the copy becomes whole.
class TargetFile {
public:
    TargetFile(int nFolderDescriptor, const char* szFileName)
        : nFolder(nFolderDescriptor), szName(szFileName) {
        constexpr int kOpen = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
        file.reset(port_openat(nFolder, szName, kOpen | O_CREAT | O_EXCL, 0666));
        bNew = static_cast<bool>(file);
        if (!file && errno == EEXIST)
            file.reset(port_openat(nFolder, szName, kOpen));
    }

    int GetDescriptor() const { return file.get(); }

    // Locks and empties it. False with errno when it is the source itself or no file.
    bool Prepare(const struct stat& source) {
        if (!file || fstat(file.get(), &status) != 0) {
            const int nError = errno;
            if (bNew)
                unlinkat(nFolder, szName, 0);
            errno = nError;
            return false;
        }
        if (!S_ISREG(status.st_mode) || IsSameFile(source, status)) {
            errno = EINVAL;
            return false;
        }
        flocktimed(file.get(), LOCK_EX | LOCK_NB, kLockTimeout);
        return bNew || ftruncate(file.get(), 0) == 0;
    }

    // Whole seconds; it keeps its own time of access.
    void SetTimes(const struct stat& source) const {
        const timeval times[2] = {{status.st_atime, 0}, {source.st_mtime, 0}};
        futimes(file.get(), times);
    }

    // What cannot be taken out of its folder is at least no part of something. errno stays.
    void Remove() const {
        const int nError = errno;
        struct stat named;
        if (fstatat(nFolder, szName, &named, AT_SYMLINK_NOFOLLOW) == 0 && IsSameFile(status, named) &&
            unlinkat(nFolder, szName, 0) != 0) [[maybe_unused]]
            const int nIgnored = ftruncate(file.get(), 0);
        errno = nError;
    }

private:
    const int nFolder;
    const char* const szName;
    port::UniqueFd file;
    bool bNew = false;
    struct stat status = {}; // as it was found
};

// Leaves errno when it fails.
int CopyOpenFile(LProcessInterface& process, int nSource, const struct stat& source, int nFolder,
                 const char* szName) {
    flocktimed(nSource, LOCK_SH | LOCK_NB, kLockTimeout);
    TargetFile target(nFolder, szName);
    if (!target.Prepare(source))
        return LProcessFailed;
    port::DataCopy data(nSource, source, target.GetDescriptor());
    const int nResult = MoveData(process, data, source.st_size);
    if (nResult == LProcessFinished)
        target.SetTimes(source);
    else
        target.Remove();
    return nResult;
}

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

bool IsDiskFull(int nError) {
    return nError == ENOSPC || nError == EDQUOT;
}

const char* ReasonOf(int nError) {
    switch (nError) {
    case EXDEV:
        return "it leads out of the folder";
    case ELOOP:
        return "a link or a loop that is not followed";
    case EINVAL:
        return "neither a file nor a folder";
    default:
        return std::strerror(nError);
    }
}

// The copy of one tree. What is met as a link leads no further than the tree that is copied, and nothing is written
// through one.
class TreeCopy final : public LTreeVisitor {
public:
    TreeCopy(LProcessInterface& processInterface, const LProcessCopyFolder& folders)
        : process(processInterface), copy(folders) {}

    int Run() {
        root.reset(port_open(copy.szSource, O_SEARCH | O_DIRECTORY));
        struct stat status;
        if (!root || fstat(root.get(), &status) != 0) {
            _LeaveOut(sPath, errno);
            return LProcessFailed;
        }
        target.Open(copy.szTarget);
        if (target.IsRoot(status))
            return LProcessFailed;
        loChain.push_back(status);
        if (!_Walk(root.get()))
            return LProcessFinished; // what cannot be listed at all counts as empty
        return nResult;
    }

    void BeginFolder(std::size_t nEntries, int nError) override {
        loLevels.push_back({1.0 / static_cast<double>(std::max<std::size_t>(nEntries, 1)), 0});
        if (nError != 0)
            _LeaveOut(sPath, nError);
    }

    void VisitFile(int nFolder, const char* szName, unsigned char cType) override {
        LProcessInterfaceSubProcess step = _NextStep();
        const port::UniqueFd source = _OpenSource(nFolder, szName, cType);
        const int nError = source ? 0 : errno;
        struct stat status;
        if (source && cType == DT_LNK && fstat(source.get(), &status) == 0 && S_ISDIR(status.st_mode))
            _FollowFolder(source.get(), status, szName, step);
        else
            _CopyFile(source.get(), nError, szName, step);
    }

    bool EnterFolder(int nFolder, const char* szName) override {
        const LProcessInterfaceSubProcess step = _NextStep();
        struct stat status;
        if (fstatat(nFolder, szName, &status, AT_SYMLINK_NOFOLLOW) != 0)
            return _LeaveOut(_PathOf(szName), errno);
        return _Enter(status, szName, step);
    }

    void LeaveFolder(int, const char*) override {
        if (!target.Leave())
            _EndAt(ENOENT);
        loLevels.pop_back();
        loSteps.pop_back();
        loChain.pop_back();
        const std::size_t nSlash = sPath.rfind('/');
        sPath.erase(nSlash == std::string::npos ? 0 : nSlash);
    }

    bool IsDone() const override { return bEnded; }

private:
    // How far the work is in one of the folders that it is in.
    struct Level {
        double dShare;
        unsigned long dwEntry;
    };

    // False when the folder could not be opened.
    bool _Walk(int nFolder) {
        const LTreeWalk::Result eResult = LTreeWalk(*this).Walk(nFolder, ".");
        if (eResult == LTreeWalk::NotOpened)
            BeginFolder(0, errno);
        else if (eResult == LTreeWalk::WayLost)
            _EndAt(ENOENT);
        return eResult != LTreeWalk::NotOpened;
    }

    LProcessInterfaceSubProcess _NextStep() {
        Level& level = loLevels.back();
        LProcessInterface& parent = loSteps.empty() ? process : loSteps.back();
        return {parent, static_cast<double>(level.dwEntry++) * level.dShare, level.dShare};
    }

    port::UniqueFd _OpenSource(int nFolder, const char* szName, unsigned char cType) const {
        if (cType == DT_LNK)
            return port::UniqueFd(port_open_beneath(root.get(), _PathOf(szName).c_str(), kOpenSource));
        if (cType == DT_REG)
            return port::UniqueFd(port_openat(nFolder, szName, kOpenSource | O_NOFOLLOW));
        errno = EINVAL;
        return {};
    }

    void _CopyFile(int nSource, int nOpenError, const char* szName, LProcessInterface& step) {
        ReportStart(step, szName);
        struct stat status;
        int nError = nOpenError != 0 ? nOpenError : _Refusal(nSource, szName, status);
        int nCopied = LProcessFailed;
        if (nError == 0) {
            nCopied = CopyOpenFile(step, nSource, status, target.GetTop(), szName);
            nError = errno;
        }
        if (nCopied == LProcessFailed)
            _LeaveOut(_PathOf(szName), nError);
        else if (nCopied == LProcessStopped)
            nResult = LProcessStopped;
        bEnded = nCopied == LProcessStopped ||
                 (nCopied == LProcessFailed && (IsDiskFull(nError) || !target.IsOpen()));
    }

    // Why an open file is not copied, or 0; its status then.
    int _Refusal(int nSource, const char* szName, struct stat& status) const {
        if (fstat(nSource, &status) != 0)
            return errno;
        if (!S_ISREG(status.st_mode))
            return EINVAL;
        if (!target.IsOpen())
            return ENOENT;
        return _Fits(szName) ? 0 : ENAMETOOLONG;
    }

    // A link to a folder. Those in a folder that was reached by one are not followed: a few links could make more of a
    // tree than any disk holds.
    void _FollowFolder(int nFolder, const struct stat& status, const char* szName,
                       const LProcessInterfaceSubProcess& step) {
        const bool bLoop = std::any_of(loChain.begin(), loChain.end(),
                                       [&](const struct stat& above) { return IsSameFile(above, status); });
        if (bBelowLink || bLoop) {
            _LeaveOut(_PathOf(szName), ELOOP);
            return;
        }
        if (!_Enter(status, szName, step))
            return;
        bBelowLink = true;
        _Walk(nFolder);
        bBelowLink = false;
        if (!bEnded)
            LeaveFolder(nFolder, szName);
    }

    bool _Enter(const struct stat& status, const char* szName, const LProcessInterfaceSubProcess& step) {
        if (!_Fits(szName))
            return _LeaveOut(_PathOf(szName), ENAMETOOLONG);
        if (!target.IsOpen() && !(LFile::CreateFolderTree(copy.szTarget) && target.Open(copy.szTarget)))
            return _EndAt(errno);
        if (!target.Enter(szName, status))
            return _LeaveOut(_PathOf(szName), errno);
        sPath = _PathOf(szName);
        loSteps.push_back(step);
        loChain.push_back(status);
        return true;
    }

    std::string _PathOf(const char* szName) const { return sPath.empty() ? szName : sPath + "/" + szName; }

    bool _Fits(const char* szName) const {
        const std::size_t nLength = std::max(std::strlen(copy.szSource), std::strlen(copy.szTarget));
        return nLength + 1 + _PathOf(szName).size() < LPathBufferSize;
    }

    // Tells what is missing from the copy. False.
    bool _LeaveOut(const std::string& sWhat, int nError) {
        process.SetErrorF("%s/%s is not copied: %s", copy.szSource, sWhat.c_str(), ReasonOf(nError));
        nResult = LProcessFailed;
        return false;
    }

    bool _EndAt(int nError) {
        bEnded = true;
        return _LeaveOut(sPath, nError);
    }

    LProcessInterface& process;
    const LProcessCopyFolder copy;
    port::UniqueFd root; // what is copied
    LTreeTarget target;
    std::string sPath;                               // of the folder that the work is in, from the root
    std::vector<Level> loLevels;                     // one for each folder from the root on
    std::deque<LProcessInterfaceSubProcess> loSteps; // one for each below the root
    std::vector<struct stat> loChain;                // each from the root on
    int nResult = LProcessFinished;
    bool bBelowLink = false;
    bool bEnded = false;
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
    const port::UniqueFd source(port_open(copy.szSource, kOpenSource));
    struct stat status;
    if (fstat(source.get(), &status) != 0 || S_ISDIR(status.st_mode))
        return LProcessFailed;
    return CopyOpenFile(process, source.get(), status, AT_FDCWD, copy.szTarget);
}

int Process(LProcessInterface& process, const LProcessCopyFolder& copy) {
    return TreeCopy(process, copy).Run();
}
