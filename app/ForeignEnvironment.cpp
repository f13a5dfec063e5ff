#include "ForeignEnvironment.h"

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

bool FindForeignFolder(std::string& sWhy) {
    if (geteuid() != 0)
        return false;
    for (const char* szVariable :
         {"HOME", "CFFIXED_USER_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
        const char* szFolder = getenv(szVariable);
        struct stat status;
        if (szFolder == nullptr || stat(szFolder, &status) != 0 || status.st_uid == 0)
            continue;
        sWhy = std::string("root does not use a user's folders: ") + szVariable + " is " + szFolder;
        return true;
    }
    return false;
}
