#include "corefoundation/CFURL.h"

#include "corefoundation/CFString.h"

#include <climits>
#include <cstring>
#include <unistd.h>

namespace {

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

std::string absolutePath(std::string_view path) {
    char folder[PATH_MAX];
    // A working folder that is gone completes nothing; the path then fails where it is used.
    if (path.front() == '/' || getcwd(folder, sizeof folder) == nullptr)
        return std::string(path);
    std::string absolute(folder);
    if (absolute.back() != '/')
        absolute += '/';
    return absolute.append(path);
}

} // namespace

bool __CFURL::equals(const CFObject& other) const {
    const auto& url = static_cast<const __CFURL&>(other);
    return path == url.path && isDirectory == url.isDirectory;
}

namespace port {

CFRef<CFURLRef> makeURL(std::string_view path, bool isDirectory) {
    if (path.empty() || path.find('\0') != std::string_view::npos)
        return {};
    return CFRef<CFURLRef>(new __CFURL(absolutePath(withoutTrailingSlashes(path)), isDirectory));
}

} // namespace port

CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef path, CFURLPathStyle style,
                                       Boolean isDirectory) {
    std::string bytes;
    if (style != kCFURLPOSIXPathStyle || !port::copyUtf8(path, bytes))
        return nullptr;
    return port::makeURL(bytes, isDirectory != 0).release();
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                                 Boolean isDirectory) {
    const std::string_view path(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
    return port::makeURL(path, isDirectory != 0).release();
}

Boolean CFURLHasDirectoryPath(CFURLRef url) {
    return url->isDirectory;
}

CFURLRef CFURLCopyAbsoluteURL(CFURLRef url) {
    return static_cast<CFURLRef>(CFRetain(url));
}

CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style) {
    return style == kCFURLPOSIXPathStyle ? port::makeString(url->path).release() : nullptr;
}

Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean, UInt8* buffer, CFIndex size) {
    if (size < 1)
        return false;
    const bool fits = url->path.size() < static_cast<std::size_t>(size);
    const std::size_t length = fits ? url->path.size() : 0;
    std::memcpy(buffer, url->path.data(), length);
    buffer[length] = 0;
    return fits;
}

CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef, CFURLRef url) {
    const std::string_view path = url->path;
    return port::makeURL(path.substr(0, path.rfind('/') + 1), true).release();
}

CFStringRef CFURLCopyLastPathComponent(CFURLRef url) {
    const std::string_view path = url->path;
    const std::string_view name = path.substr(path.rfind('/') + 1);
    return name.empty() ? nullptr : port::makeString(name).release();
}
