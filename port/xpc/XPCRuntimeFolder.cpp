#include "xpc/XPCRuntimeFolder.h"

#include "xpc/XPCEndpoint.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/runtime_folder.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "host/FileLock.h"
#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr std::size_t kMaxPathBytes = sizeof(sockaddr_un::sun_path) - 1;
constexpr std::size_t kHashDigits = 16;

// FNV-1a, 64 bits, in hexadecimal digits.
std::string hashOf(std::string_view name) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
    std::string digits(kHashDigits, '0');
    for (std::size_t i = kHashDigits; i-- != 0; hash >>= 4)
        digits[i] = "0123456789abcdef"[hash & 15];
    return digits;
}

// With one allocation: each connection asks for a path or two.
std::string joined(std::string_view first, std::string_view second) {
    std::string whole;
    whole.reserve(first.size() + second.size());
    return whole.append(first).append(second);
}

bool fail(int error) {
    errno = error;
    return false;
}

} // namespace

std::string xpcRuntimeFolder() {
    const char* const base = std::getenv("XDG_RUNTIME_DIR");
    if (base != nullptr && base[0] == '/')
        return joined(base, "/port-xpc");
    return "/tmp/port-xpc-" + std::to_string(::geteuid());
}

bool xpcCheckRuntimeFolder(const std::string& folder, bool create, uid_t ourUser) {
    if (create && ::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        return false;
    struct stat status {};
    if (::lstat(folder.c_str(), &status) != 0)
        return false;
    if (!S_ISDIR(status.st_mode))
        return fail(ENOTDIR);
    if (status.st_uid != ourUser)
        return fail(EPERM);
    return (status.st_mode & 07777) == 0700 || fail(EACCES);
}

std::string xpcServicePath(const std::string& folder, std::string_view name, std::string_view suffix) {
    const std::size_t taken = folder.size() + 1 + suffix.size();
    if (name.empty() || taken + 1 + kHashDigits > kMaxPathBytes) {
        errno = name.empty() ? EINVAL : ENAMETOOLONG;
        return {};
    }
    const std::size_t room = kMaxPathBytes - taken;
    std::string path;
    path.reserve(kMaxPathBytes);
    path.append(folder).append(1, '/');
    if (name.size() > room || name.find('/') != std::string_view::npos) {
        for (const char c : name.substr(0, room - 1 - kHashDigits))
            path += c == '/' ? '_' : c;
        path.append(1, '-').append(hashOf(name));
    } else {
        path.append(name);
    }
    return path.append(suffix);
}

} // namespace port

bool port_runtime_folder(char* path, std::size_t size) {
    const std::string folder = port::xpcRuntimeFolder();
    strlcpy(path, folder.c_str(), size);
    return port::xpcCheckRuntimeFolder(folder, false);
}

pid_t port_service_process(const char* name) {
    const port::UniqueFd socket = port::xpcConnect(name);
    pid_t process = -1;
    return socket && port::xpcPeerIsOurs(socket.get(), process) ? process : -1;
}

int port_lock_in_runtime_folder(const char* name, unsigned milliseconds) {
    const std::string folder = port::xpcRuntimeFolder();
    if (!port::xpcCheckRuntimeFolder(folder, true))
        return -1;
    port::UniqueFd file(port::sys::open((folder + "/" + name).c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600));
    if (!file || !port::lockFile(file.get(), std::chrono::milliseconds(milliseconds)))
        return -1;
    return file.release();
}
