// Zip archives, made and read by the system's "/usr/bin/zip" and "/usr/bin/unzip".
//
// Thread-safety: an LZipFile is not shared between threads. `Save`, and the functions that add or delete, change
// the process's working folder while they run, and put it back on every way out: no other thread may depend on
// it meanwhile. Whatever runs a tool blocks until it ends, and `Save` for one second more.
//
// Paths and names are terminated UTF-8 texts of at most 259 bytes, copied, and never null; longer ones are cut.
// No character in them changes what a tool does: quotes, blanks, patterns, line feeds and a leading "-" are
// names like any other, and the tools' options in the environment have no effect. An archive has an absolute
// path, because the tool runs in another folder. The tools' own rules hold for the rest: an archive's name
// without a dot gets ".zip", unzip drops control characters from the names that it writes.
//
// A tool runs in a session of its own with an empty standard input: Ctrl-C reaches this process alone, and what
// a tool would ask (for a password, for another disk, whether to go on where the disk is full) it takes for
// answered with nothing, which is a failure. It ends with this process.
//
// Extracting replaces files and links of the same names and goes into folders that are there, but never through
// a link that leads to a folder, whoever made it: an archive with an entry below such a link of the destination
// fails, and nothing of it is extracted. As long as it runs nobody else may put links there. A destination that
// has such links somewhere, or more than 65,536 names, gets a folder ".extract-XXXXXX" meanwhile, out of which
// things are moved to their places; into a volume that is mounted in it nothing is then extracted. An archive may
// unpack to LZipUnpackLimit bytes.
//
// The tools' messages go where the process's own output goes. Failures are results.
#pragma once

#include "base/LLimits.h"
#include "base/LList.h"

class LZipCommand;

#pragma GCC visibility push(default)

class LProcessInterface;

// What an archive may unpack to unless SetUnpackLimit says otherwise: 64 GiB, in bytes.
constexpr unsigned long long LZipUnpackLimit = 64ULL << 30;

// A path or name in a list.
struct LZipFileName {
    explicit LZipFileName(const char* szPath);

    LZipFileName* pNext = nullptr;
    char szName[LPathBufferSize];
};

// What is to be added to an archive or removed from it.
class LZipFile {
public:
    // The base folder, against which names that are removed are made relative, is the archive's own or the one
    // given. With bFreshenOnly only files that the archive has, and that have changed, are added.
    LZipFile(const char* szArchive, bool bFreshenOnly);
    LZipFile(const char* szArchive, const char* szBase, bool bFreshenOnly);
    // A text would be taken for the flag.
    LZipFile(const char*, const char*) = delete;
    LZipFile(const LZipFile&) = delete;
    LZipFile& operator=(const LZipFile&) = delete;

    // Back to an object without work. The archive's path, freshening and recursion stay.
    void Clear();

    // The last component of the path is added, from its folder, which becomes the working folder. A name that
    // contains ".app" makes the whole call recursive. True.
    bool AddFile(const char* szPath);
    // A folder is added: the one that SetFolder names. True.
    bool AddFolder(const char* szPath);
    // An entry is removed: the one that SetRemoveName names. False.
    bool RemoveFile(const char* szPath);
    // A folder is removed: the one that SetFolder names. False.
    bool RemoveFolder(const char* szPath);

    void SetFolder(const char* szPath);
    void SetWorkingFolder(const char* szPath);
    void SetRemoveName(const char* szEntry);
    // Without the list, files of version control and the Finder are added too.
    void SetNoExclusionList(bool bWithout) { bNoExclusionList = bWithout; }
    // Links are then followed, not stored.
    void SetNoLinkStoring(bool bWithout) { bNoLinkStoring = bWithout; }
    // The bytes that extracting one archive may write, whatever the archive says of its sizes; the tool's messages
    // count. A tool that passes them is ended within a tenth of a second; extracting has then failed, and what was
    // extracted stays. Where the system does not tell what a program writes there is no limit; and
    // only root is told it of one that has ended: for others a tool that needs less than a tenth of a second has none.
    void SetUnpackLimit(unsigned long long qwBytes) { qwUnpackLimit = qwBytes; }
    // Kept, and without effect.
    void SetOption(char option) { cOption = option; }

    // Asked, while a tool runs, whether to stop; borrowed. Null, and at first, nobody is.
    void SetProcess(LProcessInterface* pInterface) { pProcess = pInterface; }

    // Does what was collected, in the working folder. True on success, and the object is cleared; otherwise it
    // keeps everything and may be saved again. Adding and removing are not meant to be mixed. Names that are too
    // many for one command line are added by several, one after the other; the first that fails is the last.
    bool Save();

    // Extracts everything into a folder, which is made when only its last level is missing, and replaces what
    // is there. True on success.
    bool ExtractAllFiles(const char* szDestFolder);
    // The same for one entry of an archive; for all when szEntry is empty.
    bool Extract(const char* szArchive, const char* szDestFolder, const char* szEntry);

    const char* GetBaseFolder() const { return szBaseFolder; }
    // True when a file or folder is to be added or removed.
    bool HasWork() const;

    // Makes or replaces the file by an archive without entries. False when the file cannot be made, or somebody
    // has it locked.
    static bool CreateEmptyZipFile(const char* szPath);

    // Questions about archives are not answered: the results are always these.
    static bool GetZipFileDetails(const char* szArchive, const char* szEntry, bool& bExists,
                                  unsigned long long& qwSize);                 // true; false and 0
    static bool TestZipFileExists(const char* szArchive, const char* szEntry); // true
    static unsigned long long GetZipFileSizeBytes64(const char* szArchive, const char* szEntry); // 0
    static bool VerifyZipFileIntegrity(const char* szArchive);                                   // false

private:
    bool _RemoveFolder(LZipCommand& command);
    bool _AddFiles(LZipCommand& command, const char* szExclusions) const;
    void _AddOptions(LZipCommand& command) const;
    bool _Run(const LZipCommand& command) const;
    bool _Run(const LZipCommand& command, unsigned long long qwMostWritten) const;
    bool _RunFolderRemoval(LZipCommand& command) const;

    char szRemoveName[LPathBufferSize] = {};
    char szFolder[LPathBufferSize] = {};
    char szWorkingFolder[LPathBufferSize] = {};
    char cOption;
    bool bNoExclusionList = false;
    bool bNoLinkStoring = false;
    bool bRecursive = false;
    bool bFreshen;
    char szArchivePath[LPathBufferSize];
    char szBaseFolder[LPathBufferSize];
    LList<LZipFileName> loFilesToAdd;
    LList<LZipFileName> loFoldersToAdd;
    LList<LZipFileName> loFilesToRemove;
    LList<LZipFileName> loFoldersToRemove;
    LProcessInterface* pProcess = nullptr;
    unsigned long long qwUnpackLimit = LZipUnpackLimit;
};

constexpr char LZipFileDefaultOption = '7';

// Single steps; true on success.

bool LZipFileCreate(const char* szArchive);
// The option is not used. A stop request of the process interface, which may be null, ends the tool.
bool LZipFileAdd(const char* szArchive, const char* szFile, const char* szBaseFolder, bool bNoExclusionList,
                 char option, LProcessInterface* pProcess, bool bFreshen);
// The folder is added with all below it, as seen from the working folder; one inside the temporary folder by its
// last component.
bool LZipFileAddFolder(const char* szArchive, const char* szFolder, const char* szWorkingFolder,
                       bool bNoExclusionList);
// A stop request ends the tool.
bool LZipFileAddFolder(const char* szArchive, const char* szFolder, const char* szWorkingFolder,
                       bool bNoExclusionList, LProcessInterface* pProcess);
// The entry of exactly that name.
bool LZipFileDelete(const char* szArchive, const char* szEntry);
// All entries below the folder; when there are none, all below the folder's bare name.
bool LZipFileDeleteFolder(const char* szArchive, const char* szFolder);
bool LZipFileExtractAllFiles(const char* szArchive, const char* szDestFolder);
bool LZipFileExtract(const char* szArchive, const char* szEntry, const char* szDestFolder);
// The same; nResult stays as it is.
bool LZipFileExtractToFile(const char* szArchive, const char* szEntry, const char* szDestFolder,
                           int& nResult);

// The fixed answers of the class.
bool LZipFileGetFileDetails(const char* szArchive, const char* szEntry, bool& bExists,
                            unsigned long long& qwSize);
bool LZipFileTestFileExists(const char* szArchive, const char* szEntry);
unsigned long long LZipFileGetFileSizeBytes64(const char* szArchive, const char* szEntry);
bool LZipFileVerifyIntegrity(const char* szArchive);

// Listing an archive is not supported.
class LZipFileIterator {
public:
    LZipFileIterator() = default;
    explicit LZipFileIterator(const char*) {}

    // False.
    bool Open(const char* szArchive);
    int GetCount() const { return nCount; }

private:
    LList<LZipFileName> loNames;
    int nCount = 0;
};

#pragma GCC visibility pop
