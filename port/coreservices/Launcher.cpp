#include "coreservices/Launcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "host/SystemCalls.h"
#include <port/UniqueFd.h>

namespace port {
namespace {

constexpr const char* kLaunchMark = "LAUNCHED_AT_LOGIN=1";

// Addressed to this process alone: sockets and notifications of its service manager.
constexpr std::array<std::string_view, 9> kPrivateVariables = {
    "LAUNCHED_AT_LOGIN=", "LISTEN_PID=",   "LISTEN_FDS=",    "LISTEN_FDNAMES=", "NOTIFY_SOCKET=",
    "INVOCATION_ID=",     "WATCHDOG_PID=", "WATCHDOG_USEC=", "XPC_SERVICE_FD="};

// Everything that the new process needs, made ready before the fork: after it only calls that are safe in
// the child of a process with threads.
struct Launch {
    const char* program;
    const char* workingFolder;
    std::array<char*, 2> arguments;
    std::vector<char*> environment;
    int report; // written to on failure, closed by a successful exec
};

std::vector<char*> launchEnvironment() {
    std::vector<char*> environment;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        if (std::none_of(kPrivateVariables.begin(), kPrivateVariables.end(),
                         [&](std::string_view name) { return text.starts_with(name); }))
            environment.push_back(*entry);
    }
    environment.push_back(const_cast<char*>(kLaunchMark)); // exec reads it only
    environment.push_back(nullptr);
    return environment;
}

void resetSignals() {
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal)
        ::sigaction(signal, &standard, nullptr);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool arrangeDescriptors() {
    // Not close-on-exec: where this process lacks one of the three, the empty device may stand in for it.
    const int empty = ::open("/dev/null", O_RDWR);
    if (empty < 0 || ::dup2(empty, STDIN_FILENO) < 0)
        return false;
    // Also what somebody opened without close-on-exec stays behind.
    return ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0;
}

[[noreturn]] void fail(int report) {
    const std::int32_t error = errno;
    sys::writeAll(report, &error, sizeof error);
    ::_exit(1);
}

// The first child becomes the leader of a session and leaves; the second can never get a terminal, and
// belongs to nobody.
[[noreturn]] void runChild(const Launch& launch) {
    if (::setsid() < 0)
        fail(launch.report);
    const pid_t child = ::fork();
    if (child < 0)
        fail(launch.report);
    if (child > 0)
        ::_exit(0);
    resetSignals();
    // A home that is gone is no reason not to start.
    if (::chdir(launch.workingFolder) != 0 && ::chdir("/") != 0)
        fail(launch.report);
    if (arrangeDescriptors())
        ::execve(launch.program, launch.arguments.data(), launch.environment.data());
    fail(launch.report);
}

// What the children report: 0 when the pipe closes without a word, because the program was executed.
int awaitReport(UniqueFd& report) {
    std::int32_t error = 0;
    const ssize_t got = sys::read(report.get(), &error, sizeof error);
    if (got < 0)
        return errno;
    return got == sizeof error ? error : 0;
}

// False when the child cannot be waited for.
bool awaitEnd(pid_t child, int& status) {
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return false;
    return true;
}

} // namespace

int launchDetached(const std::string& program, const std::string& workingFolder) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return errno;
    UniqueFd report(ends[0]);
    UniqueFd childEnd(ends[1]);
    const Launch launch{program.c_str(),
                        workingFolder.c_str(),
                        {const_cast<char*>(program.c_str()), nullptr},
                        launchEnvironment(),
                        childEnd.get()};
    const pid_t child = ::fork();
    if (child < 0)
        return errno;
    if (child == 0)
        runChild(launch);
    childEnd.reset();
    const int error = awaitReport(report);
    int status = 0;
    awaitEnd(child, status);
    return error;
}

bool runToEnd(const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str())); // exec reads it only
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&files);
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
        ::posix_spawn_file_actions_addopen(&files, descriptor, "/dev/null", O_RDWR, 0);
    ::posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
    sigset_t signals;
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    pid_t child = -1;
    const int error = ::posix_spawnp(&child, pointers[0], &files, &attributes, pointers.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&files);
    int status = 0;
    return error == 0 && awaitEnd(child, status) && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace port
