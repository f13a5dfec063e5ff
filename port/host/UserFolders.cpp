#include "host/UserFolders.h"

#include <cstdlib>
#include <port/user.h>
#include <unistd.h>

namespace port {
namespace {

std::string absolutePathFrom(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && value[0] == '/' ? value : "";
}

std::string homeInUserDatabase() {
    const auto entry = userEntry(::getuid());
    return entry && entry->pw_dir[0] == '/' ? entry->pw_dir : "";
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
