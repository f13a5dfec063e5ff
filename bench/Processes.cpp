#include "Processes.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
namespace {

int figurePipe = -1;

pid_t forkPinned(int cpu, const std::function<void()>& body) {
    const pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pinTo(cpu);
    body();
    _exit(0);
}

void endChild(pid_t child, bool kill) {
    if (child <= 0)
        return;
    if (kill)
        ::kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

} // namespace

void pinTo(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<unsigned>(cpu), &set);
    sched_setaffinity(0, sizeof set, &set);
}

double measurePair(Placement placement, const std::function<void()>& server,
                   const std::function<double()>& client) {
    if (placement == Placement::TwoCpus && sysconf(_SC_NPROCESSORS_ONLN) < 2)
        return -1;
    int ends[2];
    if (pipe(ends) != 0)
        return -1;
    const pid_t serverPid = forkPinned(0, server);
    const pid_t clientPid = forkPinned(placement == Placement::TwoCpus ? 1 : 0, [&] {
        figurePipe = ends[1];
        reportAndExit(client());
    });
    close(ends[1]);
    double figure = -1;
    if (read(ends[0], &figure, sizeof figure) != sizeof figure)
        figure = -1;
    close(ends[0]);
    endChild(clientPid, false);
    endChild(serverPid, true);
    return figure;
}

void reportAndExit(double figure) {
    const ssize_t written = write(figurePipe, &figure, sizeof figure);
    _exit(written == sizeof figure ? 0 : 1);
}

ScratchFolder::ScratchFolder() {
    char name[] = "/tmp/foundation-bench-XXXXXX";
    const char* made = mkdtemp(name);
    if (made == nullptr)
        std::abort();
    path_ = made;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

double medianOf(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace bench
