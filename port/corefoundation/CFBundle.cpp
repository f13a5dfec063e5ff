#include "corefoundation/CFBundle.h"

#include "corefoundation/CFContainers.h"
#include "corefoundation/CFString.h"
#include "corefoundation/CFURL.h"
#include "corefoundation/PropertyList.h"
#include "host/ExecutableLink.h"

#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace {

constexpr std::string_view kBundleSuffix = ".app";
constexpr std::string_view kProgramFolder = "/Contents/MacOS";
constexpr std::string_view kInfoPath = "/Contents/Info.plist";
constexpr std::string_view kResourcesPath = "/Contents/Resources";

constinit port::CFImmortal<__CFString> versionKey{std::string_view("CFBundleVersion")};
constinit port::CFImmortal<__CFString> identifierKey{std::string_view("CFBundleIdentifier")};
constinit port::CFImmortal<__CFString> nameKey{std::string_view("CFBundleName")};
constinit port::CFImmortal<__CFString> executableKey{std::string_view("CFBundleExecutable")};

bool isFolder(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isFile(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

std::string_view folderOf(std::string_view path) {
    return path.substr(0, path.rfind('/'));
}
std::string_view nameOf(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

port::CFRef<CFDictionaryRef> readInfo(const std::string& path) {
    std::vector<std::uint8_t> bytes;
    std::string error;
    port::CFRef<CFPropertyListRef> list;
    if (port::readPropertyListFile(path.c_str(), bytes) == 0)
        list = port::readPropertyList(bytes, error);
    if (port::asKind<CFDictionaryRef>(list.get(), port::CFKind::Dictionary) == nullptr)
        return port::CFRef<CFDictionaryRef>(new __CFDictionary({}));
    return port::CFRef<CFDictionaryRef>(static_cast<CFDictionaryRef>(list.release()));
}

CFBundleRef makeMainBundle() {
    std::string executable = port::ownExecutable();
    if (executable.empty())
        return nullptr;
    const std::string_view bundle = port::bundleFolderOfExecutable(executable);
    std::string folder(bundle.empty() ? folderOf(executable) : bundle);
    if (folder.empty())
        folder = "/";
    return new __CFBundle(std::move(folder), std::move(executable), !bundle.empty());
}

} // namespace

constinit const CFStringRef kCFBundleVersionKey = &versionKey.value;
constinit const CFStringRef kCFBundleIdentifierKey = &identifierKey.value;
constinit const CFStringRef kCFBundleNameKey = &nameKey.value;
constinit const CFStringRef kCFBundleExecutableKey = &executableKey.value;

__CFBundle::__CFBundle(std::string path, std::string executable, bool isBundled)
    : CFObject(port::CFKind::Bundle), folder(std::move(path)), bundled(isBundled),
      executable_(std::move(executable)) {}

CFDictionaryRef __CFBundle::info() {
    const std::lock_guard lock(reading_);
    if (!info_)
        info_ = bundled ? readInfo(folder + std::string(kInfoPath))
                        : port::CFRef<CFDictionaryRef>(new __CFDictionary({}));
    return info_.get();
}

std::string __CFBundle::executablePath() {
    if (!executable_.empty())
        return executable_;
    std::string name;
    const auto value = port::asKind<CFStringRef>(info()->find(kCFBundleExecutableKey), port::CFKind::String);
    if (value != nullptr && !port::copyUtf8(value, name))
        return {};
    if (value == nullptr) {
        name = nameOf(folder);
        if (name.ends_with(kBundleSuffix))
            name.resize(name.size() - kBundleSuffix.size());
    }
    // A name with a slash would lead out of the bundle, "." and ".." are no programs.
    if (name.empty() || name.find('/') != std::string::npos || name.find('\0') != std::string::npos)
        return {};
    std::string path = folder;
    path.append(kProgramFolder).append("/").append(name);
    return isFile(path) ? path : std::string();
}

std::string __CFBundle::identifier() {
    std::string text;
    const auto value = port::asKind<CFStringRef>(info()->find(kCFBundleIdentifierKey), port::CFKind::String);
    if (value != nullptr)
        port::copyUtf8(value, text);
    return text;
}

namespace port {

std::string_view bundleFolderOfExecutable(std::string_view executable) {
    const std::string_view programs = folderOf(executable);
    if (!programs.ends_with(kProgramFolder))
        return {};
    const std::string_view bundle = programs.substr(0, programs.size() - kProgramFolder.size());
    const std::string_view name = nameOf(bundle);
    return name.ends_with(kBundleSuffix) && name.size() > kBundleSuffix.size() ? bundle : std::string_view();
}

CFRef<CFBundleRef> bundleAt(const std::string& path) {
    return CFRef<CFBundleRef>(isFolder(path) ? new __CFBundle(path, {}, true) : nullptr);
}

} // namespace port

CFBundleRef CFBundleCreate(CFAllocatorRef, CFURLRef url) {
    return port::bundleAt(url->path).release();
}

CFBundleRef CFBundleGetMainBundle() {
    static __CFBundle* const bundle = makeMainBundle();
    return bundle;
}

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle) {
    return port::makeURL(bundle->folder, true).release();
}

CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle) {
    std::string path = bundle->folder;
    if (bundle->bundled)
        path.append(kResourcesPath);
    return port::makeURL(path, true).release();
}

CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle) {
    return port::makeURL(bundle->executablePath(), false).release();
}

CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key) {
    return bundle->info()->find(key);
}

CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle) {
    return bundle->info();
}

CFStringRef CFBundleGetIdentifier(CFBundleRef bundle) {
    return port::asKind<CFStringRef>(bundle->info()->find(kCFBundleIdentifierKey), port::CFKind::String);
}
