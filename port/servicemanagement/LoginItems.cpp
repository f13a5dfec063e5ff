#include "servicemanagement/LoginItems.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <port/bsd.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "host/UserFolders.h"
#include "servicemanagement/DesktopEntry.h"

namespace port {
namespace {

using Folders = std::vector<std::string>;

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
    Folders folders;
    if (std::string own = userEntryFolder(); !own.empty())
        folders.push_back(std::move(own));
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

// Whether one of the names with semicolons is that of the desktop that runs; nobody knows where none does.
bool namesDesktop(std::string_view names) {
    const char* const value = std::getenv("XDG_CURRENT_DESKTOP");
    std::string_view desktops = value != nullptr ? value : "";
    const std::string list = ";" + std::string(names) + ";";
    while (!desktops.empty()) {
        const std::size_t length = std::min(desktops.find(':'), desktops.size());
        if (list.find(";" + std::string(desktops.substr(0, length)) + ";") != list.npos)
            return true;
        desktops.remove_prefix(std::min(length + 1, desktops.size()));
    }
    return false;
}

// The line of the entry that keeps the session from starting it, with what it makes of the entry; null for none.
std::pair<const char*, port_login_item_state_t> switchedOffBy(std::string_view text) {
    const auto value = [&](const char* key) { return valueIn(text, kDesktopEntry, key); };
    if (value("Hidden") == "true")
        return {"Hidden=true", PORT_LOGIN_ITEM_MASKED};
    if (value("Exec").empty())
        return {"Exec=", PORT_LOGIN_ITEM_MASKED};
    if (value("X-GNOME-Autostart-enabled") == "false")
        return {"X-GNOME-Autostart-enabled=false", PORT_LOGIN_ITEM_OFF};
    if (value("X-MATE-Autostart-enabled") == "false")
        return {"X-MATE-Autostart-enabled=false", PORT_LOGIN_ITEM_OFF};
    const std::string only = value("OnlyShowIn");
    if (!only.empty() && std::getenv("XDG_CURRENT_DESKTOP") != nullptr && !namesDesktop(only))
        return {"OnlyShowIn", PORT_LOGIN_ITEM_OFF};
    if (namesDesktop(value("NotShowIn")))
        return {"NotShowIn", PORT_LOGIN_ITEM_OFF};
    return {nullptr, PORT_LOGIN_ITEM_ON};
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
    item = {};
    item.state = state;
    strlcpy(item.path, path.c_str(), sizeof item.path);
    strlcpy(item.program, programOf(command).c_str(), sizeof item.program);
}

} // namespace

std::string userEntryFolder() {
    const std::string folder = configurationFolder();
    return folder.empty() ? "" : folder + "/autostart";
}

int lookAtEntry(const std::string& path, port_login_item_t& item) {
    store(item, PORT_LOGIN_ITEM_MISSING, "", "");
    if (path.empty() || !exists(path))
        return 0;
    std::string text;
    const int error = readItem(path, text) ? 0 : errno;
    auto [line, state] = switchedOffBy(text);
    if (line == nullptr && valueIn(text, kDesktopEntry, "X-systemd-skip") == "true" &&
        port_service_manager_runs())
        state = PORT_LOGIN_ITEM_LEFT;
    store(item, state, path, unescaped(valueIn(text, kDesktopEntry, "Exec")));
    item.line = line;
    return error;
}

} // namespace port

void port_session_entry(const char* name, port_login_item_t* item) {
    port::lookAtEntry(port::firstIn(port::entryFolders(), name), *item);
}

void port_user_unit(const char* name, port_login_item_t* item) {
    const port::Folders folders = port::unitFolders();
    const std::string path = port::firstIn(folders, name);
    std::string text;
    port::readItem(path, text);
    port::store(*item, path.empty() ? PORT_LOGIN_ITEM_MISSING : port::unitState(folders, path, name), path,
                port::valueIn(text, "[Service]", "ExecStart"));
}

bool port_service_manager_runs() {
    return port::exists("/run/systemd/system") || port::exists(port::runtimeFolder() + "/systemd/private");
}
