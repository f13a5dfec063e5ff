#include "servicemanagement/HelperBundle.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <port/UniqueFd.h>
#include <port/trust.h>
#include <sys/stat.h>
#include <unistd.h>

#include "corefoundation/CFBundle.h"
#include "corefoundation/CFString.h"
#include "host/ExecutableLink.h"
#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr int kMaxItems = 1000; // of a folder with helpers

// Without links; empty when nothing is there.
std::string realPath(const std::string& path) {
    char real[PATH_MAX];
    return ::realpath(path.c_str(), real) == nullptr ? "" : real;
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

// In the folder, or the folder itself.
bool isIn(const std::string& path, const std::string& folder) {
    return !folder.empty() && (path + "/").starts_with(folder + "/");
}

// The display name, else the name; empty when the bundle has neither.
std::string nameOf(CFBundleRef bundle) {
    std::string name;
    for (const CFStringRef key : {CFSTR("CFBundleDisplayName"), kCFBundleNameKey}) {
        const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, key);
        if (const auto text = asKind<CFStringRef>(value, CFKind::String);
            text != nullptr && copyUtf8(text, name) && !name.empty())
            break;
    }
    return name;
}

// None when the bundle at that path has another identifier.
HelperBundle helperAt(const std::string& path, const std::string& identifier) {
    const std::string real = realPath(path);
    const CFRef<CFBundleRef> bundle = bundleAt(real);
    if (!bundle || bundle->identifier() != identifier)
        return {};
    CFBundleRef own = CFBundleGetMainBundle();
    const std::string application = own != nullptr ? nameOf(own) : "";
    return {real, bundle->executablePath(), application.empty() ? nameOf(bundle.get()) : application};
}

HelperBundle helperIn(const std::string& folder, const std::string& identifier) {
    const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.c_str()), ::closedir);
    HelperBundle found;
    for (int count = 0; open != nullptr && found.path.empty() && count < kMaxItems; ++count) {
        const dirent* const entry = ::readdir(open.get());
        if (entry == nullptr)
            break;
        if (std::string_view(entry->d_name).ends_with(".app"))
            found = helperAt(folder + "/" + entry->d_name, identifier);
    }
    return found;
}

// The folder, or the one above it in which it is to be made.
std::string existing(std::string folder) {
    while (!folder.empty() && realPath(folder).empty())
        folder = folderOf(folder);
    return folder.empty() ? "/" : realPath(folder);
}

// The folder on the way to the program that may be emptied before the next login, though the entry stays; empty when
// there is none. Where home itself is temporary, the entry goes with the program.
std::string temporaryFolderOf(const std::string& program, const std::string& settings) {
    const auto outlasts = [&](const std::string& folder) { return !isIn(settings, folder); };
    for (const char* variable : {"TMPDIR", "XDG_RUNTIME_DIR"}) {
        const char* const value = std::getenv(variable);
        std::string folder = value != nullptr && value[0] == '/' ? realPath(value) : "";
        if (isIn(program, folder) && outlasts(folder))
            return folder;
    }
    for (std::size_t end = program.find('/', 1); end != program.npos; end = program.find('/', end + 1)) {
        std::string folder = program.substr(0, end);
        struct stat status;
        if (::lstat(folder.c_str(), &status) == 0 && (status.st_mode & S_ISVTX) != 0 && outlasts(folder))
            return folder;
    }
    return "";
}

} // namespace

HelperBundle findHelperBundle(const std::string& identifier, const std::string& entryProgram) {
    HelperBundle found;
    if (CFBundleRef own = CFBundleGetMainBundle(); own != nullptr && own->bundled)
        found = helperIn(own->folder + "/Contents/Library/LoginItems", identifier);
    if (found.path.empty() && entryProgram.starts_with('/'))
        found = helperAt(std::string(bundleFolderOfExecutable(entryProgram)), identifier);
    const std::string installed = folderOf(folderOf(ownExecutable())) + "/libexec";
    for (const char* folder : {installed.c_str(), "/usr/local/libexec", "/usr/libexec"})
        if (found.path.empty())
            found = helperIn(folder, identifier);
    return found;
}

Obstacle obstacleOf(const HelperBundle& bundle, const std::string& entryFolder) {
    if (const UniqueFd any(sys::open("/", O_RDONLY)); !any)
        return {errno, std::string("the helper cannot be looked for: ") + std::strerror(errno)};
    if (bundle.path.empty())
        return {ENOENT,
                "there is no such helper in the application's Contents/Library/LoginItems, nor installed"};
    if (bundle.program.empty())
        return {ENOENT, bundle.path + " has no executable"};
    if (::access(bundle.program.c_str(), X_OK) != 0)
        return {errno, bundle.program + " cannot be executed: " + std::strerror(errno)};
    for (const std::string& file : {bundle.program, bundle.path + "/Contents/Info.plist"}) {
        char item[PATH_MAX];
        if (port_only_ours(file.c_str(), item, sizeof item))
            continue;
        return errno == EPERM
                   ? Obstacle{EPERM, std::string("others may change ") + item}
                   : Obstacle{errno, std::string(item) + " cannot be looked at: " + std::strerror(errno)};
    }
    const std::string settings = existing(entryFolder);
    struct stat status;
    if (::geteuid() == 0 && ::stat(settings.c_str(), &status) == 0 && status.st_uid != 0)
        return {EPERM, "root does not use a user's folders: " + settings};
    if (const std::string folder = temporaryFolderOf(bundle.program, settings); !folder.empty())
        return {EPERM, bundle.path + " is in a temporary folder, " + folder};
    return {};
}

} // namespace port
