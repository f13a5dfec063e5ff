#include "xpc/XPCBundledService.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <spawn.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "host/ExecutableLink.h"

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

// The environment with the two variables set.
std::vector<std::string> environmentWith(int socket, int lock) {
    const std::string socketPrefix = std::string(kSocketVariable).append("=");
    const std::string lockPrefix = std::string(kLockVariable).append("=");
    std::vector<std::string> variables{socketPrefix + std::to_string(socket),
                                       lockPrefix + std::to_string(lock)};
    for (char** variable = environ; *variable != nullptr; ++variable) {
        const std::string_view text(*variable);
        if (!text.starts_with(socketPrefix) && !text.starts_with(lockPrefix))
            variables.emplace_back(text);
    }
    return variables;
}

// Services that have ended since are taken off the process table when the next one is started.
void remember(pid_t started) {
    static std::mutex& mutex = *new std::mutex;
    static std::vector<pid_t>& children = *new std::vector<pid_t>;
    const std::lock_guard lock(mutex);
    std::erase_if(children, [](pid_t child) { return ::waitpid(child, nullptr, WNOHANG) != 0; });
    children.push_back(started);
}

// A child with default signals that inherits exactly these two descriptors, under their numbers.
bool spawn(const std::string& program, int socket, int lock) {
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    for (const int fd : {socket, lock})
        posix_spawn_file_actions_adddup2(&actions, fd, fd); // takes close-on-exec away
    sigset_t set;
    sigemptyset(&set);
    posix_spawnattr_setsigmask(&attributes, &set);
    sigfillset(&set);
    posix_spawnattr_setsigdefault(&attributes, &set);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> variables = environmentWith(socket, lock);
    std::vector<char*> environment;
    environment.reserve(variables.size() + 1);
    for (std::string& variable : variables)
        environment.push_back(variable.data());
    environment.push_back(nullptr);
    std::string path = program;
    char* const arguments[] = {path.data(), nullptr};
    pid_t pid = 0;
    errno = posix_spawn(&pid, program.c_str(), &actions, &attributes, arguments, environment.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (errno != 0)
        return false;
    remember(pid);
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
    const auto endpoint = XPCEndpoint::listen(name);
    if (endpoint == nullptr)
        return errno == EADDRINUSE;
    // The service holds the lock through its own copy of the descriptor.
    return endpoint->lock() >= 0 && spawn(program, endpoint->socket(), endpoint->lock());
}

std::unique_ptr<XPCEndpoint> xpcOwnEndpoint() {
    UniqueFd socket = inherited(kSocketVariable);
    UniqueFd lock = inherited(kLockVariable);
    if (socket && isListening(socket.get()))
        return XPCEndpoint::adopt(std::move(socket), std::move(lock));
    return XPCEndpoint::listen(ownName());
}

} // namespace port
