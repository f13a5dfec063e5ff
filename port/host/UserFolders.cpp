#include "host/UserFolders.h"

#include <cstdlib>
#include <memory>
#include <pwd.h>
#include <unistd.h>
#include <vector>

namespace port {
namespace {

constexpr std::size_t kUserEntrySize = 16384;

std::string absolutePathFrom(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && value[0] == '/' ? value : "";
}

std::string homeInUserDatabase() {
    std::vector<char> buffer(kUserEntrySize);
    passwd entry;
    passwd* found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || found == nullptr)
        return "";
    return entry.pw_dir != nullptr && entry.pw_dir[0] == '/' ? entry.pw_dir : "";
}

} // namespace

std::string homeFolder() {
    std::string home = absolutePathFrom("CFFIXED_USER_HOME");
    if (home.empty())
        home = absolutePathFrom("HOME");
    return home.empty() ? homeInUserDatabase() : home;
}

std::string configurationFolder() {
    std::string folder = absolutePathFrom("XDG_CONFIG_HOME");
    if (!folder.empty())
        return folder;
    folder = homeFolder();
    return folder.empty() ? folder : folder + "/.config";
}

} // namespace port
