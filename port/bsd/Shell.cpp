#include <port/shell.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "host/Deadline.h"
#include "host/DetachedThread.h"
#include "host/Spawn.h"
#include "host/SystemCalls.h"
#include <port/internal/seams_shell.h>

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr int kEndPatience = 2000; // milliseconds
constexpr int kNoTimeLimit = -1;
constexpr auto kStartPatience = 200ms; // the end of the process has no more time for a start
constexpr auto kStartPause = 1ms;

port_shell_hook shellHook = nullptr;

// The sessions that run, for the end of this process. What finds no place ends by itself.
class Sessions {
public:
    Sessions() : owner_(::getpid()) {}
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;
    // A child that was forked has the list and not the sessions. What another thread is starting just now comes
    // into the list in time, but when the end came from a signal to that very thread.
    ~Sessions() {
        if (::getpid() != owner_)
            return;
        ended_ = true;
        for (const Deadline deadline(kStartPatience); starting_ != 0 && !deadline.isPast();)
            std::this_thread::sleep_for(kStartPause);
        for (const auto& session : running_)
            if (const pid_t leader = session; leader > 0)
                ::kill(-leader, SIGTERM);
    }

    // Starts a session by `start`, whose result is 0 or an errno value. ECANCELED once this process ends.
    template <typename TStart>
    int begin(TStart start, pid_t& leader) {
        ++starting_;
        const int error = ended_ ? ECANCELED : start();
        if (error == 0)
            replace(0, leader);
        --starting_;
        return error;
    }
    void remove(pid_t leader) { replace(leader, 0); }

private:
    void replace(pid_t before, pid_t after) {
        for (auto& session : running_)
            if (pid_t expected = before; session.compare_exchange_strong(expected, after))
                return;
    }

    pid_t owner_;
    std::atomic<bool> ended_{false};
    std::atomic<unsigned> starting_{0};
    std::array<std::atomic<pid_t>, 64> running_{};
};
Sessions sessions;

void* waitForChild(void* child) {
    port_wait(static_cast<pid_t>(reinterpret_cast<std::intptr_t>(child)));
    return nullptr;
}

int spawnShell(const char* commandLine, const SpawnOptions& options, pid_t& child) {
    return spawn("/bin/sh", {"sh", "-c", commandLine}, options, child);
}

} // namespace

ShellCommand::~ShellCommand() {
    if (process_ <= 0)
        return;
    end();
    wait();
}

bool ShellCommand::start(const char* commandLine, const char* const* withoutVariables) {
    if (shellHook != nullptr) {
        status_ = shellHook(commandLine);
        return true;
    }
    SpawnOptions options;
    options.hasOwnSession = true;
    options.standard[STDIN_FILENO] = kEmptyDevice;
    for (; withoutVariables != nullptr && *withoutVariables != nullptr; ++withoutVariables)
        options.without.emplace_back(*withoutVariables);
    const auto begin = [&] { return spawnShell(commandLine, options, process_); };
    if (const int error = sessions.begin(begin, process_); error != 0) {
        errno = error;
        return false;
    }
    end_.reset(static_cast<int>(::syscall(SYS_pidfd_open, process_, 0)));
    return true;
}

bool ShellCommand::hasEnded() const {
    return process_ <= 0 || awaitEnd(0);
}

// Until it has been waited for, the process is there, if only as one that has ended, and its number is its
// own.
bool ShellCommand::awaitEnd(int milliseconds) const {
    if (!end_) {
        siginfo_t info{};
        ::waitid(P_PID, static_cast<id_t>(process_), &info,
                 WEXITED | WNOWAIT | (milliseconds < 0 ? 0 : WNOHANG));
        return info.si_pid == process_;
    }
    pollfd ended{end_.get(), POLLIN, 0};
    int ready;
    do
        ready = ::poll(&ended, 1, milliseconds);
    while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// The shell becomes the last program of its line, so its number is that one's.
unsigned long long ShellCommand::written() const {
    constexpr std::string_view kField = "wchar: ";
    char text[256];
    const std::string path = "/proc/" + std::to_string(process_) + "/io";
    const UniqueFd file(process_ > 0 ? sys::open(path.c_str(), O_RDONLY) : -1);
    const ssize_t length = file ? sys::read(file.get(), text, sizeof text - 1) : 0;
    text[length > 0 ? length : 0] = '\0';
    const char* const field = std::strstr(text, kField.data());
    return field != nullptr ? std::strtoull(field + kField.size(), nullptr, 10) : 0;
}

void ShellCommand::end() {
    if (process_ <= 0)
        return;
    ::kill(-process_, SIGTERM);
    awaitEnd(kEndPatience);
    ::kill(-process_, SIGKILL);
}

int ShellCommand::wait() {
    if (process_ <= 0)
        return status_;
    awaitEnd(kNoTimeLimit);
    sessions.remove(process_);
    status_ = port_wait(process_);
    process_ = -1;
    end_.reset();
    return status_;
}

} // namespace port

void port_set_shell_hook(port_shell_hook hook) {
    port::shellHook = hook;
}

int port_system(const char* commandLine) {
    const pid_t child = port_start_shell(commandLine, -1, -1);
    return child < 0 ? -1 : port_wait(child);
}

pid_t port_start_shell(const char* commandLine, int input, int output) {
    const auto given = [](int descriptor) { return descriptor < 0 ? port::kInherited : descriptor; };
    port::SpawnOptions options;
    options.standard[STDIN_FILENO] = given(input);
    options.standard[STDOUT_FILENO] = given(output);
    pid_t child = -1;
    if (const int error = port::spawnShell(commandLine, options, child); error != 0) {
        errno = error;
        return -1;
    }
    return child;
}

int port_wait(pid_t child) {
    int status = -1;
    pid_t ended;
    do
        ended = ::waitpid(child, &status, 0);
    while (ended < 0 && errno == EINTR);
    return ended < 0 ? -1 : status;
}

void port_let_go(pid_t child) {
    if (::waitpid(child, nullptr, WNOHANG) == 0)
        port::startDetachedThread(port::waitForChild, reinterpret_cast<void*>(std::intptr_t{child}));
}
