// The folders that a copied tree goes to, beside the walk through its source. Internal to the file operations.
//
// Thread-safety: none.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include "files/internal/LFolderStack.h"

class LTreeTarget {
public:
    // The folder of the whole copy; a link to one is followed. False with errno.
    bool Open(const char* szPath) { return Open(AT_FDCWD, szPath, true); }
    bool Open(int nParent, const char* szName, bool bFollow);
    bool IsOpen() const { return !folders.IsEmpty(); }
    // Whether this is the folder of the whole copy.
    bool IsRoot(const struct stat& status) const;

    // The descriptor of the lowest folder.
    int GetTop() const { return folders.GetTop(); }
    // Its type and permissions.
    mode_t GetMode() const { return folders.GetMode(); }
    // Goes down into the folder of that name, which is made when it is missing; a link is not entered. False with
    // errno; ELOOP when its source, which the status is of, is the folder of the whole copy: it would find itself, for
    // ever.
    bool Enter(const char* szName, const struct stat& source);
    // Goes back up. False when the way is lost; nothing is open then.
    bool Leave() { return folders.Pop(); }

private:
    LFolderStack folders;
    dev_t rootDevice = 0;
    ino_t rootInode = 0;
};
