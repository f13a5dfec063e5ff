#include "coreservices/RunningBundles.h"

#include <climits>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "corefoundation/CFBundle.h"
#include "host/ExecutableLink.h"
#include "host/ProcessTable.h"

namespace port {

void forEachRunningBundle(const std::function<bool(pid_t process, const std::string& bundle)>& visit) {
    forEachProcess([&](int table, const char* name, pid_t process) {
        char link[32];
        ::stpcpy(::stpcpy(link, name), "/exe");
        char program[PATH_MAX];
        const std::string_view bundle = bundleFolderOfExecutable(readExecutableLink(table, link, program));
        struct stat status;
        if (bundle.empty() || ::fstatat(table, name, &status, 0) != 0 || status.st_uid != ::geteuid())
            return true;
        return visit(process, std::string(bundle));
    });
}

} // namespace port
