#include "coreservices/Launcher.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "coreservices/LaunchScope.h"
#include "host/Spawn.h"
#include "host/SystemCalls.h"
#include <port/UniqueFd.h>

namespace port {
namespace {

// Addressed to this process alone: by its launcher, and sockets and notifications of its service manager.
constexpr std::string_view kPrivateVariables[] = {
    "LAUNCHED_AT_LOGIN", "PORT_LOGIN_ITEM_ENABLED", "LISTEN_PID",   "LISTEN_FDS",    "LISTEN_FDNAMES",
    "NOTIFY_SOCKET",     "INVOCATION_ID",           "WATCHDOG_PID", "WATCHDOG_USEC", "XPC_SERVICE_FD"};

// Not `spawn`: the new process is moved to a place of its own, and asked whether it may go on, before it is executed.
//
// Everything that it needs is made ready before the fork: after it only calls that are safe in the child of a process
// with threads.
struct Launch {
    const char* program;
    const char* workingFolder;
    std::array<char*, 2> arguments;
    const std::vector<char*>& environment;
    int launcher; // closed by a successful exec
    bool keepsTerminal;
};

// What the launcher and the new process tell each other, as numbers: the process its id, the launcher that it
// may go on, the process the negative errno value of what failed.
constexpr std::int32_t kGoOn = 0;

void resetSignals() {
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal)
        ::sigaction(signal, &standard, nullptr);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

// A pipe or a socket may lose its reader before the program ends, and would end it then.
bool isLasting(int descriptor, bool keepsTerminal) {
    struct stat status;
    return ::fstat(descriptor, &status) == 0 && (S_ISREG(status.st_mode) || S_ISCHR(status.st_mode)) &&
           (keepsTerminal || ::isatty(descriptor) == 0);
}

bool arrangeDescriptors(bool keepsTerminal) {
    // Not close-on-exec: where this process lacks one of the three, the empty device itself stands in for it.
    const int empty = ::open("/dev/null", O_RDWR);
    if (empty < 0 || ::dup2(empty, STDIN_FILENO) < 0)
        return false;
    for (const int output : {STDOUT_FILENO, STDERR_FILENO})
        if (!isLasting(output, keepsTerminal) && ::dup2(empty, output) < 0)
            return false;
    // Also what somebody opened without close-on-exec stays behind.
    return ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0;
}

bool tell(int peer, std::int32_t number) {
    return ::send(peer, &number, sizeof number, MSG_NOSIGNAL) == sizeof number;
}

// False when the peer has closed its end without a word.
bool hear(int peer, std::int32_t& number) {
    return sys::read(peer, &number, sizeof number) == sizeof number;
}

[[noreturn]] void fail(int launcher) {
    tell(launcher, -errno);
    ::_exit(1);
}

// The first child becomes the leader of a session and leaves; the second can never get a terminal, and
// belongs to nobody. It does nothing for a launcher that has died: the next one would launch it again.
[[noreturn]] void runChild(const Launch& launch) {
    if (::setsid() < 0)
        fail(launch.launcher);
    const pid_t child = ::fork();
    if (child < 0)
        fail(launch.launcher);
    if (child > 0)
        ::_exit(0);
    resetSignals();
    std::int32_t word = 0;
    if (!tell(launch.launcher, ::getpid()))
        ::_exit(1);
    if (!hear(launch.launcher, word)) { // one that lives is not to take this end for that of an execution
        errno = EIO;
        fail(launch.launcher);
    }
    // A home that is gone is no reason not to start.
    if (::chdir(launch.workingFolder) != 0 && ::chdir("/") != 0)
        fail(launch.launcher);
    if (arrangeDescriptors(launch.keepsTerminal))
        ::execve(launch.program, launch.arguments.data(), launch.environment.data());
    fail(launch.launcher);
}

// From the fork to the end of the new process's words: 0 when it was executed.
int guide(int process, std::string_view application) {
    std::int32_t word = 0;
    if (!hear(process, word))
        return ECHILD;
    if (word < 0)
        return -word;
    moveToOwnScope(word, application);
    if (!tell(process, kGoOn))
        return errno;
    return hear(process, word) ? -word : 0;
}

// False when the child cannot be waited for.
bool awaitEnd(pid_t child, int& status) {
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return false;
    return true;
}

// False also when a signal comes: it may ask this process to end.
bool endsWithin(pid_t child, std::chrono::milliseconds limit) {
    const UniqueFd handle(static_cast<int>(::syscall(SYS_pidfd_open, child, 0)));
    pollfd end{handle.get(), POLLIN, 0};
    return handle && ::poll(&end, 1, static_cast<int>(limit.count())) > 0;
}

} // namespace

int launchDetached(const std::string& program, const std::string& workingFolder, const LaunchOptions& kind) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return errno;
    const UniqueFd process(ends[0]);
    UniqueFd launcher(ends[1]);
    SpawnOptions options;
    options.without.assign(std::begin(kPrivateVariables), std::end(kPrivateVariables));
    options.with = {kind.mark};
    const std::vector<char*> environment = environmentFor(options);
    const Launch launch{program.c_str(),
                        workingFolder.c_str(),
                        {const_cast<char*>(program.c_str()), nullptr}, // exec reads it only
                        environment,
                        launcher.get(),
                        kind.keepsTerminal};
    const pid_t child = ::fork();
    if (child < 0)
        return errno;
    if (child == 0) {
        ::close(process.get()); // else the death of the launcher would not be heard
        runChild(launch);
    }
    launcher.reset();
    const int error = guide(process.get(), kind.application);
    int status = 0;
    awaitEnd(child, status);
    return error;
}

bool runToEnd(const std::vector<std::string>& arguments, std::chrono::milliseconds limit) {
    SpawnOptions options;
    options.standard.fill(kEmptyDevice);
    pid_t child = -1;
    if (spawn(arguments[0].c_str(), arguments, options, child) != 0)
        return false;
    if (!endsWithin(child, limit))
        ::kill(child, SIGKILL);
    int status = 0;
    return awaitEnd(child, status) && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace port
