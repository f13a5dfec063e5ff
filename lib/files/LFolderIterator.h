// Walking the entries of one folder that match a wildcard pattern.
//
// The walk: open, then, as long as the iterator is open, handle the current entry and advance with `Next`. The
// order is the file system's.
//
// Thread-safety: an iterator belongs to one thread.
#pragma once

#include <dirent.h>

#include "base/LLimits.h"
#include "files/LFile.h"

#pragma GCC visibility push(default)

class LFile::FolderIterator {
public:
    FolderIterator();
    FolderIterator(const FolderIterator&) = delete;
    FolderIterator& operator=(const FolderIterator&) = delete;
    virtual ~FolderIterator();

    // Positions on the first matching entry; true when there is one. False, and closed, when there is none or
    // the folder cannot be read. The pattern is cut at 259 bytes, and so is the folder as it is kept here.
    bool Open(const char* szFolderPath, const char* szNamePattern);

    // A folder is walked with the pattern "*". A regular file gives its folder with the file's name as the
    // pattern: on a case-sensitive file system other spellings of the name match as well, and a hidden file
    // matches nothing.
    bool Open(const char* szPath);

    // Advances to the next matching entry. False at the end; the iterator is then closed.
    bool Next();

    bool IsOpen() const { return pStream != nullptr; }
    // The current entry's name, at most 255 bytes, until the next advance; empty when there is none.
    const char* GetName() const { return szName; }
    const char* GetFolder() const { return szFolder; }
    // The open folder, for working on the current entry by its name; -1 when the iterator is closed. It stays
    // the iterator's.
    int GetDescriptor() const { return pStream != nullptr ? dirfd(pStream) : -1; }
    // Whether the current entry is a folder, or a link to one. Asks the file system only where the folder's
    // own listing does not tell.
    bool IsFolder() const;
    // Whether the current entry is a symbolic link.
    bool IsLink() const;

    // Reads the next entry, unfiltered. False at the end; the iterator is then closed.
    bool _GetNextFile();
    // Whether an entry is reported: names that match the pattern without regard to the case of ASCII letters,
    // but none that begins with "." or "__MACOSX".
    virtual bool _Matches(const char* szEntryName) const;

private:
    void _Close();

    DIR* pStream = nullptr;
    char szName[NAME_MAX + 1];
    unsigned char cType = DT_UNKNOWN;
    char szFolder[LPathBufferSize];
    char szPattern[LPathBufferSize];
    char szLowerPattern[LPathBufferSize];
};

// Every entry, hidden names, "." and ".." included; the pattern is ignored.
class LFile::FolderIteratorAllFiles : public LFile::FolderIterator {
public:
    bool _Matches(const char*) const override { return true; }
};

#pragma GCC visibility pop
