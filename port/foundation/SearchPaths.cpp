#include <Foundation/Foundation.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include "host/AtomicFile.h"
#include "host/UserFolders.h"

namespace port {
namespace {

// A folder of the XDG base directories, which programs may expect to find and make when it is missing.
std::string baseFolder(const char* variable, const char* belowHome) {
    const char* value = std::getenv(variable);
    std::string folder = value != nullptr && value[0] == '/' ? value : "";
    if (folder.empty() && !homeFolder().empty())
        folder = homeFolder() + belowHome;
    return !folder.empty() && makeFolders(folder) ? folder : "";
}

// The value of a line NAME="$HOME/..." or NAME="/..."; empty for anything else, and for the home folder itself,
// which stands for a folder that the user does not want.
std::string parseUserFolder(std::string_view line, std::string_view name) {
    if (!line.starts_with(name) || !line.substr(name.size()).starts_with("=\""))
        return "";
    std::string_view value = line.substr(name.size() + 2);
    value = value.substr(0, value.find('"'));
    constexpr std::string_view kHome = "$HOME/";
    if (value.starts_with(kHome) && value.size() > kHome.size())
        return homeFolder() + "/" + std::string(value.substr(kHome.size()));
    return value.starts_with('/') ? std::string(value) : "";
}

// What the desktop's own file says, if it exists and says something.
std::string userFolder(std::string_view name) {
    const std::string path = configurationFolder() + "/user-dirs.dirs";
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "re"), std::fclose);
    if (file == nullptr)
        return "";
    char line[4096];
    std::string folder;
    while (std::fgets(line, sizeof line, file.get()) != nullptr)
        if (std::string found = parseUserFolder(line, name); !found.empty())
            folder = std::move(found);
    return folder;
}

std::string applicationsFolder(NSSearchPathDomainMask domain) {
    if (domain != NSUserDomainMask)
        return "/Applications";
    return homeFolder().empty() ? "" : homeFolder() + "/Applications";
}

std::string searchPath(NSSearchPathDirectory directory) {
    switch (directory) {
    case NSDocumentDirectory:
        return userFolder("XDG_DOCUMENTS_DIR");
    case NSDesktopDirectory:
        return userFolder("XDG_DESKTOP_DIR");
    case NSCachesDirectory:
        return baseFolder("XDG_CACHE_HOME", "/.cache");
    case NSApplicationSupportDirectory:
        return baseFolder("XDG_DATA_HOME", "/.local/share");
    case NSDownloadsDirectory:
        return userFolder("XDG_DOWNLOAD_DIR");
    case NSMoviesDirectory:
        return userFolder("XDG_VIDEOS_DIR");
    case NSMusicDirectory:
        return userFolder("XDG_MUSIC_DIR");
    case NSPicturesDirectory:
        return userFolder("XDG_PICTURES_DIR");
    default:
        return "";
    }
}

} // namespace
} // namespace port

NSRef<NSString> NSHomeDirectory() {
    const std::string home = port::homeFolder();
    return home.empty() ? NSRef<NSString>() : NSString::stringWithFileSystemRepresentation(home.c_str());
}

port::References<NSString> NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory directory,
                                                               NSSearchPathDomainMask domain, bool) {
    std::string path;
    if (directory == NSApplicationDirectory)
        path = port::applicationsFolder(domain);
    else if (domain == NSUserDomainMask)
        path = port::searchPath(directory);
    port::References<NSString> found;
    if (!path.empty())
        found.push_back(NSString::stringWithFileSystemRepresentation(path.c_str()));
    return found;
}
