// An owned file URL.
//
// Thread-safety: as a plain value.
#pragma once

#include "platform/LCFRef.h"

#pragma GCC visibility push(default)

class LCFURL {
public:
    LCFURL() = default;
    // Takes over a reference that the caller owns; null for none.
    explicit LCFURL(CFURLRef pURL) : pHeld(pURL) {}

    // Null when none is held. The wrapper keeps owning it.
    CFURLRef Get() const { return pHeld.Get(); }
    explicit operator bool() const { return static_cast<bool>(pHeld); }

    // Replaces the URL by that of a POSIX path, whose bytes need not be UTF-8, marked as a folder when there is
    // one at the path now. An empty path leaves none held; a relative one starts at the working folder. Asks the
    // file system and may block with it.
    void CreateFromFullPath(const char* szPath);

    // The path, with the bytes that it has; one that does not fit is cut before a character. Empty when none is
    // held. A size of 0 writes nothing.
    void GetPath(char* szOut, unsigned long dwSize) const;

private:
    LCFRef<CFURLRef> pHeld;
};

#pragma GCC visibility pop
