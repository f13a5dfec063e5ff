#include "host/ExecutableLink.h"

#include <array>
#include <climits>
#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

namespace port {

std::string_view readExecutableLink(int folder, const char* link, std::span<char> buffer) {
    constexpr std::string_view kDeleted = " (deleted)";
    const ssize_t length = readlinkat(folder, link, buffer.data(), buffer.size());
    if (length <= 0 || static_cast<std::size_t>(length) == buffer.size())
        return {};
    std::string_view executable(buffer.data(), static_cast<std::size_t>(length));
    if (executable.ends_with(kDeleted))
        executable.remove_suffix(kDeleted.size());
    return executable;
}

std::string readExecutableLink(const char* link) {
    std::array<char, PATH_MAX> path;
    return std::string(readExecutableLink(AT_FDCWD, link, path));
}

std::string ownExecutable() {
    return readExecutableLink("/proc/self/exe");
}

// Without a process table the path that the kernel was given to execute tells it.
std::string ownProgramName() {
    std::string path = ownExecutable();
    if (const auto* given = reinterpret_cast<const char*>(::getauxval(AT_EXECFN)); path.empty() && given)
        path = given;
    return path.substr(path.rfind('/') + 1);
}

} // namespace port
