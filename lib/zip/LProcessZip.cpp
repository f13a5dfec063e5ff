#include "zip/LProcessZip.h"

#include <port/bsd.h>

#include "files/LFile.h"
#include "strings/LString.h"
#include "threads/LProcessInterface.h"

namespace {

int Fail(LProcessInterface& process, const char* szWhat, const char* szPath) {
    LStringLongTemplate<char> sError;
    sError.sprintf("%s: \"%s\"", szWhat, szPath);
    process.SetError(LUTF8StringLongRef(sError));
    return LProcessFailed;
}

// A tool that was ended by a stop request has not failed.
int FailOrStop(LProcessInterface& process, const char* szWhat, const char* szPath) {
    return process.IsToStop() ? LProcessStopped : Fail(process, szWhat, szPath);
}

void SetStatusName(LProcessInterface& process, const char* szPath) {
    char szName[LPathBufferSize];
    LFile::_GetFileFromPath(szName, szPath);
    process.SetStatus(szName, 0);
}

} // namespace

LProcessZipFileAdd::LProcessZipFileAdd(const char* szArchivePath, const char* szBase) {
    strlcpy(szArchive, szArchivePath, sizeof szArchive);
    strlcpy(szBaseFolder, szBase, sizeof szBaseFolder);
}

LProcessZipFileExtractAll::LProcessZipFileExtractAll(const char* szArchivePath, const char* szDestination) {
    strlcpy(szArchive, szArchivePath, sizeof szArchive);
    strlcpy(szDestFolder, szDestination, sizeof szDestFolder);
}

int Process(LProcessInterface& process, const LProcessZipFileAdd& add) {
    process.SetProgress(0.0);
    int nCount = 0;
    for (const LZipFileName* pFile = add.loFiles.GetFirst(); pFile != nullptr; pFile = pFile->pNext)
        ++nCount;
    int nAdded = 0;
    for (const LZipFileName* pFile = add.loFiles.GetFirst(); pFile != nullptr; pFile = pFile->pNext) {
        if (process.IsToStop())
            return LProcessStopped;
        const char* szPath = pFile->szName;
        if (*szPath == '\0')
            continue;
        SetStatusName(process, szPath);
        if (!LFile::Exists(szPath))
            return Fail(process, "File does not exist", szPath);
        if (!LZipFileAdd(add.szArchive, szPath, add.szBaseFolder, true, LZipFileDefaultOption, &process,
                         false))
            return FailOrStop(process, "File could not be added to Zip file", szPath);
        process.SetProgress(static_cast<double>(nAdded++) / nCount);
    }
    return LProcessFinished;
}

int Process(LProcessInterface& process, const LProcessZipFileExtractAll& extract) {
    process.SetProgress(0.0);
    SetStatusName(process, extract.szArchive);
    LZipFile zip(extract.szArchive, false);
    zip.SetProcess(&process);
    if (!zip.ExtractAllFiles(extract.szDestFolder))
        return FailOrStop(process, "File could not be extracted from Zip file", extract.szArchive);
    return LProcessFinished;
}
