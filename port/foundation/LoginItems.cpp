#include <port/bsd.h>
#include <port/login_items.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "host/UserFolders.h"

namespace port {
namespace {

using Folders = std::vector<std::string>;

constexpr std::size_t kMaxLines = 1000; // of a file; neither kind has more than a few dozen

bool exists(const std::string& path) {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0;
}

std::string folderIn(const char* variable, const std::string& usual) {
    const char* const value = std::getenv(variable);
    return value != nullptr && value[0] == '/' ? value : usual;
}

std::string runtimeFolder() {
    return folderIn("XDG_RUNTIME_DIR", "/run/user/" + std::to_string(::geteuid()));
}

// The absolute folders of a list with colons, each with the same end.
void appendList(Folders& folders, const char* variable, const char* usual, const char* end) {
    const char* const value = std::getenv(variable);
    std::string_view list = value != nullptr && value[0] != '\0' ? value : usual;
    while (!list.empty()) {
        const std::size_t length = std::min(list.find(':'), list.size());
        if (list.front() == '/')
            folders.push_back(std::string(list.substr(0, length)) + end);
        list.remove_prefix(std::min(length + 1, list.size()));
    }
}

Folders entryFolders() {
    Folders folders = {configurationFolder() + "/autostart"};
    appendList(folders, "XDG_CONFIG_DIRS", "/etc/xdg", "/autostart");
    return folders;
}

// In the service manager's order; the folders of its generators hold nothing that an administrator or a package
// put there.
Folders unitFolders() {
    const std::string runtime = runtimeFolder();
    Folders folders = {configurationFolder() + "/systemd/user.control", runtime + "/systemd/user.control",
                       configurationFolder() + "/systemd/user"};
    appendList(folders, "XDG_CONFIG_DIRS", "/etc/xdg", "/systemd/user");
    folders.insert(folders.end(),
                   {"/etc/systemd/user", runtime + "/systemd/user", "/run/systemd/user",
                    folderIn("XDG_DATA_HOME", homeFolder() + "/.local/share") + "/systemd/user"});
    appendList(folders, "XDG_DATA_DIRS", "/usr/local/share:/usr/share", "/systemd/user");
    folders.insert(folders.end(),
                   {"/usr/local/lib/systemd/user", "/usr/lib/systemd/user", "/lib/systemd/user"});
    return folders;
}

// Empty when it is in none.
std::string firstIn(const Folders& folders, const std::string& name) {
    const std::string end = "/" + name;
    for (const std::string& folder : folders)
        if (std::string path = folder + end; exists(path))
            return path;
    return "";
}

// The last value of the key in the section, without the blanks around it; empty when there is none.
std::string valueIn(const std::string& path, std::string_view section, std::string_view key) {
    constexpr const char* kBlanks = " \t\r";
    std::ifstream file(path);
    std::string line;
    std::string value;
    bool inSection = false;
    for (std::size_t count = 0; count < kMaxLines && std::getline(file, line); ++count) {
        if (line.starts_with('['))
            inSection = std::string_view(line).starts_with(section);
        const std::size_t equals = line.find('=');
        if (!inSection || equals == line.npos ||
            line.substr(0, line.find_last_not_of(kBlanks, equals - 1) + 1) != key)
            continue;
        const std::size_t first = line.find_first_not_of(kBlanks, equals + 1);
        value = first == line.npos ? "" : line.substr(first, line.find_last_not_of(kBlanks) + 1 - first);
    }
    return value;
}

// The program of a command line: its first word, whose quotes and backslashes both kinds of files write alike.
std::string programOf(std::string_view command) {
    // Marks of a unit: how the program is started.
    command.remove_prefix(std::min(command.find_first_not_of("@-:+!|"), command.size()));
    const bool quoted = command.starts_with('"');
    std::string program;
    for (std::size_t i = quoted ? 1 : 0; i < command.size() && command[i] != (quoted ? '"' : ' '); ++i) {
        // "%%" is the mark itself; other marks name what only the service manager knows.
        if ((command[i] == '\\' || command.substr(i, 2) == "%%") && i + 1 < command.size())
            ++i;
        program += command[i];
    }
    return program;
}

port_login_item_state_t entryState(const std::string& path) {
    const auto is = [&](const char* key, const char* value) {
        return valueIn(path, "[Desktop Entry]", key) == value;
    };
    if (is("Hidden", "true") || is("Exec", ""))
        return PORT_LOGIN_ITEM_MASKED;
    if (is("X-GNOME-Autostart-enabled", "false"))
        return PORT_LOGIN_ITEM_OFF;
    return is("X-systemd-skip", "true") && port_service_manager_runs() ? PORT_LOGIN_ITEM_LEFT
                                                                       : PORT_LOGIN_ITEM_ON;
}

// Whether a folder like "x.target.wants" beside the units has a link of the unit's name.
bool isWantedIn(const std::string& folder, const std::string& name) {
    const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.c_str()), ::closedir);
    std::string link = folder + "/";
    while (const dirent* entry = open == nullptr ? nullptr : ::readdir(open.get())) {
        const std::string_view unit = entry->d_name;
        if (!unit.ends_with(".wants") && !unit.ends_with(".requires"))
            continue;
        link.resize(folder.size() + 1);
        if (exists(link.append(unit).append("/").append(name)))
            return true;
    }
    return false;
}

port_login_item_state_t unitState(const Folders& folders, const std::string& path, const std::string& name) {
    struct stat status;
    if (::stat(path.c_str(), &status) == 0 && (!S_ISREG(status.st_mode) || status.st_size == 0))
        return PORT_LOGIN_ITEM_MASKED;
    const bool wanted = std::any_of(folders.begin(), folders.end(),
                                    [&](const std::string& folder) { return isWantedIn(folder, name); });
    return wanted ? PORT_LOGIN_ITEM_ON : PORT_LOGIN_ITEM_OFF;
}

void store(port_login_item_t& item, port_login_item_state_t state, const std::string& path,
           const std::string& command) {
    item.state = state;
    strlcpy(item.path, path.c_str(), sizeof item.path);
    strlcpy(item.program, programOf(command).c_str(), sizeof item.program);
}

} // namespace
} // namespace port

void port_session_entry(const char* name, port_login_item_t* item) {
    const std::string path = port::firstIn(port::entryFolders(), name);
    port::store(*item, path.empty() ? PORT_LOGIN_ITEM_MISSING : port::entryState(path), path,
                port::valueIn(path, "[Desktop Entry]", "Exec"));
}

void port_user_unit(const char* name, port_login_item_t* item) {
    const port::Folders folders = port::unitFolders();
    const std::string path = port::firstIn(folders, name);
    port::store(*item, path.empty() ? PORT_LOGIN_ITEM_MISSING : port::unitState(folders, path, name), path,
                port::valueIn(path, "[Service]", "ExecStart"));
}

bool port_service_manager_runs() {
    return port::exists("/run/systemd/system") || port::exists(port::runtimeFolder() + "/systemd/private");
}
