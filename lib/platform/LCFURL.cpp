#include "platform/LCFURL.h"

#include "platform/LCFString.h"

#include <sys/stat.h>

void LCFURL::CreateFromFullPath(const char* szPath) {
    pHeld.Reset();
    const LCFString path(szPath);
    struct stat status = {};
    const bool bFolder = stat(szPath, &status) == 0 && S_ISDIR(status.st_mode);
    pHeld.Reset(
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path.Get(), kCFURLPOSIXPathStyle, bFolder));
}
