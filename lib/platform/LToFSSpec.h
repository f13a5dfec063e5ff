// A file by volume, parent folder and name, made from a path and turned back into one.
//
// Thread-safety: as a plain value. Both directions ask the file system and may block with it.
#pragma once

#include <CoreServices/CoreServices.h>

#pragma GCC visibility push(default)

class LToFSSpec {
public:
    FSSpec fsSpec = {};
    bool bValid = false;

    LToFSSpec() = default;
    // Fills the file specification by CStringToFSSpec; valid when that succeeds.
    explicit LToFSSpec(const char* szPath);

    // The file specification of an existing file or folder, or of a new item in an existing folder. 0; -108 when
    // the path makes no URL; -43 when the parent folder does not exist or the name of a new item has more
    // than 63 bytes; else the file manager's own code. *pSpec is unspecified unless the result is 0.
    static OSErr CStringToFSSpec(const char* szPath, FSSpec* pSpec);

    // The path from the volume's root, cut to dwSize bytes with its terminator; empty when the file specification
    // is not valid or names the root itself. A size of 0 writes nothing.
    void GetString(char* szOut, unsigned long dwSize) const;
};

#pragma GCC visibility pop
