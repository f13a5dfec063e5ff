#include "Tracer.h"

#include "Allocations.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace counts {
namespace {

constexpr int kUntraceable = 77; // exit status
constexpr int kCallStop = SIGTRAP | 0x80;
constexpr unsigned kMostSeconds = 60;

[[noreturn]] void runTraced(const std::function<void()>& work) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
        _exit(kUntraceable);
    raise(SIGSTOP);
    alarm(kMostSeconds);
    try {
        work();
    } catch (const std::exception& reason) {
        std::fprintf(stderr, "%s\n", reason.what());
        _exit(EXIT_FAILURE);
    }
    _exit(EXIT_SUCCESS);
}

// Everything that runs below the first child.
class Tracer {
public:
    explicit Tracer(pid_t theFirst) : first(theFirst), tasks{theFirst} {}

    Total run() {
        attach();
        resume(first, 0);
        int status = 0;
        for (pid_t task; (task = waitpid(-1, &status, __WALL)) > 0 || errno == EINTR;)
            if (task > 0)
                handle(task, status);
        if (!WIFEXITED(firstStatus) || WEXITSTATUS(firstStatus) != EXIT_SUCCESS)
            throw std::runtime_error("the work was not done");
        return total;
    }

private:
    void attach() const {
        int status = 0;
        waitpid(first, &status, 0);
        const long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEFORK |
                             PTRACE_O_TRACEVFORK | PTRACE_O_EXITKILL;
        if (!WIFSTOPPED(status) || ptrace(PTRACE_SETOPTIONS, first, nullptr, options) != 0) {
            kill(first, SIGKILL);
            waitpid(first, nullptr, 0);
            throw Untraceable("processes cannot be traced here");
        }
    }

    void handle(pid_t task, int status) {
        if (!WIFSTOPPED(status)) {
            tasks.erase(task);
            if (task != first)
                return;
            firstStatus = status;
            for (const pid_t other : tasks) // what it has left behind
                kill(other, SIGKILL);
            return;
        }
        const bool isNew = tasks.insert(task).second;
        const int signal = WSTOPSIG(status);
        if (signal == kCallStop)
            countCall(task);
        const bool isForUs = signal == kCallStop || status >> 16 != 0 || (isNew && signal == SIGSTOP);
        resume(task, isForUs ? 0 : signal);
    }

    void countCall(pid_t task) {
        struct { // as ptrace(2) has it
            std::uint8_t operation;
            std::uint8_t padding[3];
            std::uint32_t architecture;
            std::uint64_t place, stack, number, arguments[6];
        } call{};
        constexpr std::uint8_t kEntry = 1;
        if (ptrace(PTRACE_GET_SYSCALL_INFO, task, sizeof call, &call) <= 0 || call.operation != kEntry)
            return;
        ++total.calls;
        total.syncs += call.number == SYS_fsync || call.number == SYS_fdatasync;
    }

    static void resume(pid_t task, int signal) { ptrace(PTRACE_SYSCALL, task, nullptr, signal); }

    const pid_t first;
    int firstStatus = 0;
    std::set<pid_t> tasks;
    Total total;
};

} // namespace

Total trace(const std::function<void()>& work) {
    startAllocations();
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        runTraced(work);
    if (child < 0)
        throw std::runtime_error("no process");
    Total total = Tracer(child).run();
    total.allocations = allocations();
    return total;
}

} // namespace counts
