#include "coreservices/RunningBundles.h"

#include <cctype>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "corefoundation/CFBundle.h"

namespace port {
namespace {

bool isOurs(const std::string& process) {
    struct stat status;
    return ::stat(process.c_str(), &status) == 0 && status.st_uid == ::geteuid();
}

} // namespace

void forEachRunningBundle(const std::function<bool(pid_t process, const std::string& bundle)>& visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> table(::opendir("/proc"), ::closedir);
    if (table == nullptr)
        return;
    while (const dirent* entry = ::readdir(table.get())) {
        if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) == 0)
            continue;
        const std::string process = std::string("/proc/") + entry->d_name;
        const std::string program = readExecutableLink((process + "/exe").c_str());
        const std::string_view bundle = bundleFolderOfExecutable(program);
        if (bundle.empty() || !isOurs(process))
            continue;
        if (!visit(std::atoi(entry->d_name), std::string(bundle)))
            return;
    }
}

} // namespace port
