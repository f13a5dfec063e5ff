// Archives made and extracted under a process interface, with status, progress, stop request and error texts.
//
// Thread-safety: as zip/LZipFile.h. Blocks while the tools run; a stop request ends the tool, and the result is
// then LProcessStopped. The archive is as it was before the tool's last file, but what was extracted stays.
//
// Results: LProcessFinished, LProcessStopped, LProcessFailed (threads/LProcessInterface.h).
#pragma once

#include "base/LLimits.h"
#include "base/LList.h"
#include "zip/LZipFile.h"

#pragma GCC visibility push(default)

class LProcessInterface;

struct LProcessZipFileAdd {
    LProcessZipFileAdd(const char* szArchivePath, const char* szBase);

    // The files are added in the order of the list, so the last one told comes first. An empty path is passed
    // over.
    void AddFile(const char* szPath) { loFiles.AddHead(new LZipFileName(szPath)); }

    char szArchive[LPathBufferSize];
    char szBaseFolder[LPathBufferSize];
    LList<LZipFileName> loFiles;
};

struct LProcessZipFileExtractAll {
    LProcessZipFileExtractAll(const char* szArchivePath, const char* szDestination);

    char szArchive[LPathBufferSize];
    char szDestFolder[LPathBufferSize];
};

// Adds the files one by one, without an exclusion list. Asks before each whether to stop, tells its name on
// line 0, and after it the part of the list that came before it, so the progress ends below 1. Fails at a file
// that does not exist or cannot be added, with an error text; the files before it are in the archive.
int Process(LProcessInterface& process, const LProcessZipFileAdd& add);

// Extracts everything, and replaces what is there. Fails with an error text when
// the archive cannot be extracted.
int Process(LProcessInterface& process, const LProcessZipFileExtractAll& extract);

#pragma GCC visibility pop
