#include "xpc/ChildProcess.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/wait.h>
#include <thread>

PrivatePlace::PrivatePlace() {
    char pattern[] = "/tmp/lfoundation-test-XXXXXX";
    folder = mkdtemp(pattern);
    for (const char* variable : {"HOME", "CFFIXED_USER_HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME"})
        setenv(variable, folder.c_str(), 1);
}

PrivatePlace::~PrivatePlace() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        std::abort();
    output.reset(ends[0]);
    const port::UniqueFd writeEnd(ends[1]);
    std::vector<char*> pointers;
    for (const std::string& argument : arguments)
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    pid = fork();
    if (pid == 0) {
        dup2(writeEnd.get(), STDOUT_FILENO);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (reaped)
        return;
    Kill(SIGKILL);
    waitpid(pid, nullptr, 0);
}

bool ChildProcess::Fill(int milliseconds) {
    pollfd wait = {output.get(), POLLIN, 0};
    if (milliseconds < 0 || poll(&wait, 1, milliseconds) <= 0)
        return false;
    char buffer[4096];
    const ssize_t count = read(output.get(), buffer, sizeof buffer);
    if (count <= 0)
        return false;
    pending.append(buffer, static_cast<std::size_t>(count));
    return true;
}

std::string ChildProcess::ReadLine(int milliseconds) {
    const long deadline = NowMilliseconds() + milliseconds;
    std::size_t end;
    while ((end = pending.find('\n')) == std::string::npos)
        if (!Fill(static_cast<int>(deadline - NowMilliseconds())))
            return {};
    std::string line = pending.substr(0, end);
    pending.erase(0, end + 1);
    return line;
}

std::string ChildProcess::ReadAll(int milliseconds) {
    const long deadline = NowMilliseconds() + milliseconds;
    while (Fill(static_cast<int>(deadline - NowMilliseconds()))) {
    }
    return pending;
}

int ChildProcess::Wait(int milliseconds) {
    const long deadline = NowMilliseconds() + milliseconds;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (NowMilliseconds() >= deadline)
            return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    reaped = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void ChildProcess::Kill(int signal) const {
    kill(pid, signal);
}

std::string HostPath(const char* name) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

int CountDescriptors(pid_t pid) {
    int count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"))
        count++;
    return count;
}

long NowMilliseconds() {
    using namespace std::chrono;
    return static_cast<long>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}
