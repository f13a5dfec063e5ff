#include "zip/LZipFile.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/files.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/LSleep.h"
#include "files/LFile.h"
#include "files/LWriteFile.h"
#include "threads/LProcessInterface.h"
#include "zip/internal/LZipCommand.h"
#include "zip/internal/LZipDestination.h"

namespace {

constexpr char kZipTool[] = "/usr/bin/zip";
constexpr char kUnzipTool[] = "/usr/bin/unzip";
constexpr unsigned int kPauseAfterSave = 1000; // milliseconds
// The system takes 128 KiB in one argument, and what follows the names has its place too.
constexpr std::size_t kLongestLine = 120'000;
constexpr mode_t kFileMode = 0666;
constexpr int kMakeLocked = O_RDWR | O_CREAT | O_TRUNC | O_EXLOCK | O_NONBLOCK;
constexpr const char* kExclusions[] = {"*.DS_Store*", "*.svn*", "*.git*"};

// The format's end record: its signature, no entries, no comment.
constexpr unsigned char kEmptyArchive[22] = {0x50, 0x4B, 0x05, 0x06};

// The file with the patterns that are not added; it exists while the tool runs.
class ExclusionList {
public:
    ExclusionList() = default;
    ExclusionList(const ExclusionList&) = delete;
    ExclusionList& operator=(const ExclusionList&) = delete;
    ~ExclusionList() {
        if (*szPath != '\0')
            unlink(szPath);
    }

    // The path; empty when no file could be made. The file is written at the first call.
    const char* Write() {
        if (*szPath != '\0')
            return szPath;
        _MakeFile();
        const port::UniqueFd fd(port_open(szPath, kMakeLocked, kFileMode));
        const LWriteFileRef file(fd.get());
        for (const char* szPattern : kExclusions)
            file.WriteLineLF(szPattern);
        return szPath;
    }

private:
    void _MakeFile() {
        char szFolder[LPathBufferSize];
        LFile::GetTempFolder(szFolder);
        LFile::_MakeFilePath(szPath, szFolder, "0XXXXXX", "");
        const port::UniqueFd fd(mkostemps(szPath, 0, O_CLOEXEC));
        if (!fd)
            *szPath = '\0';
        else
            fchmod(fd.get(), kFileMode);
    }

    char szPath[LPathBufferSize] = {};
};

// Another working folder for the life of a block; the former one comes back even if it was renamed meanwhile.
// A folder that cannot be entered changes nothing.
class WorkingFolder {
public:
    explicit WorkingFolder(const char* szPath) : fdBefore(port_open(".", O_SEARCH | O_DIRECTORY)) {
        LFile::GetCurrentDirectory(szBefore);
        LFile::SetCurrentDirectory(szPath);
    }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;
    ~WorkingFolder() {
        if (!fdBefore || fchdir(fdBefore.get()) != 0)
            LFile::SetCurrentDirectory(szBefore);
    }

private:
    port::UniqueFd fdBefore;
    char szBefore[LPathBufferSize];
};

// An empty base has nothing that a path could be relative to.
LZipFileName* MakeRelative(const char* szBase, const char* szPath) {
    char szRelative[LPathBufferSize];
    if (*szBase == '\0')
        return new LZipFileName(szPath);
    LFile::MakeRelativeFilePath(szRelative, szBase, szPath);
    return new LZipFileName(szRelative);
}

void AddFolderName(LZipCommand& command, const char* szFolder) {
    char szTemp[LPathBufferSize];
    char szLast[LPathBufferSize];
    LFile::GetTempFolder(szTemp);
    LFile::_GetFileFromPath(szLast, szFolder);
    command.AddPath(strstr(szFolder, szTemp) != nullptr ? szLast : szFolder);
}

} // namespace

LZipFileName::LZipFileName(const char* szPath) {
    strlcpy(szName, szPath, sizeof szName);
}

LZipFile::LZipFile(const char* szArchive, bool bFreshenOnly) : LZipFile(szArchive, "", bFreshenOnly) {
    LFile::_GetFolderFromPath(szBaseFolder, szArchivePath);
}

LZipFile::LZipFile(const char* szArchive, const char* szBase, bool bFreshenOnly)
    : cOption(LZipFileDefaultOption), bFreshen(bFreshenOnly) {
    strlcpy(szArchivePath, szArchive, sizeof szArchivePath);
    strlcpy(szBaseFolder, szBase, sizeof szBaseFolder);
}

void LZipFile::Clear() {
    *szRemoveName = *szFolder = *szWorkingFolder = *szBaseFolder = '\0';
    cOption = LZipFileDefaultOption;
    bNoExclusionList = bNoLinkStoring = false;
    loFilesToAdd.Clear();
    loFoldersToAdd.Clear();
    loFilesToRemove.Clear();
    loFoldersToRemove.Clear();
}

bool LZipFile::AddFile(const char* szPath) {
    char szName[LPathBufferSize];
    LFile::_GetFolderFromPath(szWorkingFolder, szPath);
    LFile::_GetFileFromPath(szName, szPath);
    loFilesToAdd.AddHead(new LZipFileName(szName));
    if (strstr(szName, ".app") != nullptr)
        bRecursive = true;
    return true;
}

bool LZipFile::AddFolder(const char* szPath) {
    loFoldersToAdd.AddHead(new LZipFileName(szPath));
    return true;
}

bool LZipFile::RemoveFile(const char* szPath) {
    loFilesToRemove.AddHead(MakeRelative(szBaseFolder, szPath));
    return false;
}

bool LZipFile::RemoveFolder(const char* szPath) {
    loFoldersToRemove.AddHead(MakeRelative(szBaseFolder, szPath));
    return false;
}

void LZipFile::SetFolder(const char* szPath) {
    strlcpy(szFolder, szPath, sizeof szFolder);
}

void LZipFile::SetWorkingFolder(const char* szPath) {
    strlcpy(szWorkingFolder, szPath, sizeof szWorkingFolder);
}

void LZipFile::SetRemoveName(const char* szEntry) {
    strlcpy(szRemoveName, szEntry, sizeof szRemoveName);
}

bool LZipFile::HasWork() const {
    return !loFilesToAdd.IsEmpty() || !loFoldersToAdd.IsEmpty() || !loFilesToRemove.IsEmpty() ||
           !loFoldersToRemove.IsEmpty();
}

bool LZipFile::Save() {
    ExclusionList list;
    LZipCommand command(kZipTool);
    const bool bExclude = !bNoExclusionList;
    if (!_AddFiles(command, bExclude && !loFilesToAdd.IsEmpty() ? list.Write() : nullptr))
        return false;
    if (!loFoldersToAdd.IsEmpty())
        AddFolderName(command, szFolder);
    const bool bRemoveFolder = !loFoldersToRemove.IsEmpty();
    bool bSaved = bRemoveFolder && _RemoveFolder(command);
    if (!loFilesToRemove.IsEmpty()) {
        command.AddOption("-d");
        command.AddPath(szArchivePath);
        command.AddEntry(szRemoveName);
    }
    if (bExclude)
        command.AddExclusionList(list.Write());
    const WorkingFolder scope(szWorkingFolder);
    if (!bRemoveFolder)
        bSaved = _Run(command);
    LSleepMilliseconds(kPauseAfterSave);
    if (bSaved)
        Clear();
    return bSaved;
}

// Names that the line does not take are added by lines of their own before; false when one of these fails.
bool LZipFile::_AddFiles(LZipCommand& command, const char* szExclusions) const {
    _AddOptions(command);
    for (const LZipFileName* pFile = loFilesToAdd.GetFirst(); pFile != nullptr; pFile = pFile->pNext) {
        command.AddPath(pFile->szName);
        if (command.GetLength() < kLongestLine || pFile->pNext == nullptr)
            continue;
        if (szExclusions != nullptr)
            command.AddExclusionList(szExclusions);
        const WorkingFolder scope(szWorkingFolder);
        if (!_Run(command))
            return false;
        command.Begin(kZipTool);
        _AddOptions(command);
    }
    return true;
}

// What stands before the names.
void LZipFile::_AddOptions(LZipCommand& command) const {
    if (!loFoldersToAdd.IsEmpty() || bRecursive)
        command.AddOption("-r");
    if (bFreshen)
        command.AddOption("-f");
    if (!loFilesToRemove.IsEmpty() || !loFoldersToRemove.IsEmpty())
        return;
    if (!bNoLinkStoring)
        command.AddOption("-y");
    command.AddPath(szArchivePath);
}

bool LZipFile::_RemoveFolder(LZipCommand& command) {
    std::replace(szFolder, szFolder + strlen(szFolder), '\\', '/');
    if (_RunFolderRemoval(command))
        return true;
    char szName[LPathBufferSize];
    LFile::_GetFileNameFromPath(szName, szFolder);
    SetFolder(szName);
    LZipCommand retry(kZipTool);
    return _RunFolderRemoval(retry);
}

bool LZipFile::_RunFolderRemoval(LZipCommand& command) const {
    command.AddOption("-d");
    command.AddPath(szArchivePath);
    command.AddEntry(szFolder, "/*");
    command.AddBlank();
    return _Run(command);
}

bool LZipFile::_Run(const LZipCommand& command, unsigned long long qwMostWritten) const {
    LProcessInterfaceVoid nobody;
    return command.Run(pProcess == nullptr ? nobody : *pProcess, qwMostWritten);
}

bool LZipFile::_Run(const LZipCommand& command) const {
    return _Run(command, LZipCommand::kNoLimit);
}

bool LZipFile::ExtractAllFiles(const char* szDestFolder) {
    return Extract(szArchivePath, szDestFolder, "");
}

bool LZipFile::Extract(const char* szArchive, const char* szDestFolder, const char* szEntry) {
    const LZipDestination destination(szDestFolder);
    if (*destination.GetPath() == '\0')
        return false;
    LZipCommand command(kUnzipTool);
    command.AddOption("-o");
    command.AddArchiveToRead(szArchive);
    if (*szEntry != '\0')
        command.AddEntry(szEntry);
    command.AddOption("-d");
    command.AddPath(destination.GetPath());
    const bool bExtracted = _Run(command, qwUnpackLimit);
    return destination.MoveIn() && bExtracted;
}

bool LZipFile::CreateEmptyZipFile(const char* szPath) {
    const port::UniqueFd fd(port_open(szPath, kMakeLocked, kFileMode));
    if (!fd)
        return false;
    [[maybe_unused]] const ssize_t nWritten = write(fd.get(), kEmptyArchive, sizeof kEmptyArchive);
    return true;
}

bool LZipFile::GetZipFileDetails(const char*, const char*, bool& bExists, unsigned long long& qwSize) {
    bExists = false;
    qwSize = 0;
    return true;
}

bool LZipFile::TestZipFileExists(const char*, const char*) {
    return true;
}

unsigned long long LZipFile::GetZipFileSizeBytes64(const char*, const char*) {
    return 0;
}

bool LZipFile::VerifyZipFileIntegrity(const char*) {
    return false;
}

bool LZipFileCreate(const char* szArchive) {
    return LZipFile::CreateEmptyZipFile(szArchive);
}

bool LZipFileAdd(const char* szArchive, const char* szFile, const char* szBaseFolder, bool bNoExclusionList,
                 char option, LProcessInterface* pProcess, bool bFreshen) {
    LZipFile zip(szArchive, szBaseFolder, bFreshen);
    zip.SetProcess(pProcess);
    zip.SetFolder(szFile);
    zip.SetOption(option);
    zip.SetNoExclusionList(bNoExclusionList);
    zip.AddFile(szFile);
    return zip.Save();
}

bool LZipFileAddFolder(const char* szArchive, const char* szFolder, const char* szWorkingFolder,
                       bool bNoExclusionList) {
    return LZipFileAddFolder(szArchive, szFolder, szWorkingFolder, bNoExclusionList, nullptr);
}

bool LZipFileAddFolder(const char* szArchive, const char* szFolder, const char* szWorkingFolder,
                       bool bNoExclusionList, LProcessInterface* pProcess) {
    LZipFile zip(szArchive, szWorkingFolder, false);
    zip.SetProcess(pProcess);
    zip.SetNoExclusionList(bNoExclusionList);
    zip.SetFolder(szFolder);
    zip.SetWorkingFolder(szWorkingFolder);
    zip.AddFolder(szFolder);
    return zip.Save();
}

bool LZipFileDelete(const char* szArchive, const char* szEntry) {
    LZipFile zip(szArchive, false);
    zip.SetRemoveName(szEntry);
    zip.RemoveFile(szEntry);
    return zip.Save();
}

bool LZipFileDeleteFolder(const char* szArchive, const char* szFolder) {
    LZipFile zip(szArchive, false);
    zip.SetFolder(szFolder);
    zip.RemoveFolder(szFolder);
    return zip.Save();
}

bool LZipFileExtractAllFiles(const char* szArchive, const char* szDestFolder) {
    return LZipFile(szArchive, false).ExtractAllFiles(szDestFolder);
}

bool LZipFileExtract(const char* szArchive, const char* szEntry, const char* szDestFolder) {
    return LZipFile(szArchive, false).Extract(szArchive, szDestFolder, szEntry);
}

bool LZipFileExtractToFile(const char* szArchive, const char* szEntry, const char* szDestFolder, int&) {
    return LZipFileExtract(szArchive, szEntry, szDestFolder);
}

bool LZipFileGetFileDetails(const char* szArchive, const char* szEntry, bool& bExists,
                            unsigned long long& qwSize) {
    return LZipFile::GetZipFileDetails(szArchive, szEntry, bExists, qwSize);
}

bool LZipFileTestFileExists(const char* szArchive, const char* szEntry) {
    return LZipFile::TestZipFileExists(szArchive, szEntry);
}

unsigned long long LZipFileGetFileSizeBytes64(const char* szArchive, const char* szEntry) {
    return LZipFile::GetZipFileSizeBytes64(szArchive, szEntry);
}

bool LZipFileVerifyIntegrity(const char* szArchive) {
    return LZipFile::VerifyZipFileIntegrity(szArchive);
}

bool LZipFileIterator::Open(const char*) {
    loNames.Clear();
    nCount = 0;
    return false;
}
