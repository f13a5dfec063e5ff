#include "platform/LCFURL.h"

#include <CoreServices/CoreServices.h>
#include <cstring>
#include <port/bsd.h>
#include <sys/stat.h>

#include "strings/LCharsets.h"

void LCFURL::CreateFromFullPath(const char* szPath) {
    struct stat status = {};
    const bool bFolder = stat(szPath, &status) == 0 && S_ISDIR(status.st_mode);
    pHeld.Reset(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                        reinterpret_cast<const UInt8*>(szPath),
                                                        static_cast<CFIndex>(std::strlen(szPath)), bFolder));
}

void LCFURL::GetPath(char* szOut, unsigned long dwSize) const {
    UInt8 path[kPortPathSize] = "";
    if (pHeld)
        CFURLGetFileSystemRepresentation(Get(), true, path, sizeof path);
    const char* const szPath = reinterpret_cast<const char*>(path);
    if (strlcpy(szOut, szPath, dwSize) >= dwSize)
        utf8strlcpy(szOut, szPath, dwSize);
}
