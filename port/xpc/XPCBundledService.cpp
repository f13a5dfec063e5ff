#include "xpc/XPCBundledService.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <string_view>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "host/ExecutableLink.h"
#include "host/Spawn.h"

namespace port {
namespace {

constexpr const char* kSocketVariable = "XPC_SERVICE_FD";
constexpr const char* kLockVariable = "XPC_SERVICE_LOCK_FD";
constexpr std::string_view kProgramFolder = "/Contents/MacOS";
constexpr std::string_view kBundleSuffix = ".xpc";

// The bundle that a program lies in; empty when it lies in none.
std::string bundleOf(const std::string& program) {
    const std::string folder = program.substr(0, program.rfind('/'));
    if (!folder.ends_with(kProgramFolder))
        return {};
    return folder.substr(0, folder.size() - kProgramFolder.size());
}

// The service's program bears its whole name or the last part of it.
std::string programOf(const std::string& name) {
    const std::string bundle = bundleOf(ownExecutable());
    if (bundle.empty() || name.find('/') != std::string::npos)
        return {};
    std::string folder = bundle;
    folder.append("/Contents/XPCServices/").append(name).append(kBundleSuffix).append(kProgramFolder);
    for (const std::string& file : {name, name.substr(name.rfind('.') + 1)}) {
        std::string program = folder;
        program.append("/").append(file);
        if (::access(program.c_str(), X_OK) == 0)
            return program;
    }
    return {};
}

// Services that have ended since are taken off the process table when the next one is started.
void remember(pid_t started) {
    static std::mutex& mutex = *new std::mutex;
    static std::vector<pid_t>& children = *new std::vector<pid_t>;
    const std::lock_guard lock(mutex);
    std::erase_if(children, [](pid_t child) { return ::waitpid(child, nullptr, WNOHANG) != 0; });
    children.push_back(started);
}

// A child that has the two descriptors, and is told their numbers.
bool start(const std::string& program, int socket, int lock) {
    SpawnOptions options;
    options.further = {socket, lock};
    options.without = {kSocketVariable, kLockVariable};
    options.with = {kSocketVariable + ("=" + std::to_string(kFurther)),
                    kLockVariable + ("=" + std::to_string(kFurther + 1))};
    pid_t child = -1;
    errno = spawn(program.c_str(), {program}, options, child);
    if (errno != 0)
        return false;
    remember(child);
    return true;
}

// A descriptor handed over in a variable, which is taken out of the environment; -1: none.
UniqueFd inherited(const char* variable) {
    const char* const text = std::getenv(variable);
    if (text == nullptr)
        return UniqueFd();
    int fd = -1;
    const char* const end = text + std::strlen(text);
    const auto result = std::from_chars(text, end, fd);
    const bool sound = result.ec == std::errc() && result.ptr == end && fd > STDERR_FILENO &&
                       ::fcntl(fd, F_SETFD, FD_CLOEXEC) == 0;
    // Not for the programs that this one starts.
    ::unsetenv(variable);
    return UniqueFd(sound ? fd : -1);
}

bool isListening(int socket) {
    int value = 0;
    socklen_t length = sizeof value;
    return ::getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &value, &length) == 0 && value == 1;
}

// That of the bundle, without suffix; of a program outside of any bundle, its file name.
std::string ownName() {
    const std::string program = ownExecutable();
    const std::string bundle = bundleOf(program);
    const std::string& path = bundle.empty() ? program : bundle;
    std::string name = path.substr(path.rfind('/') + 1);
    if (name.ends_with(kBundleSuffix))
        name.resize(name.size() - kBundleSuffix.size());
    return name;
}

} // namespace

bool xpcLaunchBundled(const std::string& name) {
    const std::string program = programOf(name);
    if (program.empty())
        return false;
    // The socket listens before the program runs, so that nobody is refused meanwhile.
    const auto endpoint = XPCEndpoint::listen(name);
    if (endpoint == nullptr)
        // Somebody else has just started it: then it is on its way.
        return errno == EADDRINUSE;
    // The service holds the lock through its own copy of the descriptor.
    return endpoint->lock() >= 0 && start(program, endpoint->socket(), endpoint->lock());
}

std::unique_ptr<XPCEndpoint> xpcOwnEndpoint() {
    UniqueFd socket = inherited(kSocketVariable);
    UniqueFd lock = inherited(kLockVariable);
    if (socket && isListening(socket.get()))
        return XPCEndpoint::adopt(std::move(socket), std::move(lock));
    return XPCEndpoint::listen(ownName());
}

} // namespace port
