#include "support/ChildProcess.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/wait.h>
#include <thread>

PrivatePlace::PrivatePlace() {
    for (const char* variable : {"HOME", "CFFIXED_USER_HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME"})
        setenv(variable, Path().c_str(), 1);
}

ChildProcess::ChildProcess(std::vector<std::string> arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        std::abort();
    output.reset(ends[0]);
    const port::UniqueFd writeEnd(ends[1]);
    std::vector<char*> pointers;
    for (std::string& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    pid = fork();
    if (pid == 0) {
        dup2(writeEnd.get(), STDOUT_FILENO);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (!reaped) {
        Kill(SIGKILL);
        Wait();
    }
}

std::string ChildProcess::Read(char end, int milliseconds) {
    const long deadline = NowMilliseconds() + milliseconds;
    std::string text;
    pollfd wait = {output.get(), POLLIN, 0};
    char next = '\0';
    while (poll(&wait, 1, static_cast<int>(std::max(deadline - NowMilliseconds(), 0L))) > 0 &&
           read(output.get(), &next, 1) == 1) {
        if (next == end)
            return text;
        text += next;
    }
    return end == '\n' ? "" : text;
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

std::string HostPath(const char* name) {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

int CountDescriptors(pid_t pid) {
    return static_cast<int>(
        std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {}));
}

long NowMilliseconds() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}
