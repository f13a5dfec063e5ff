#include "Processes.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr int kMostMilliseconds = 60'000; // for one run

// What a client tells, in one write.
struct Report {
    double figure = kUnknown;
    double percentile99 = kUnknown;
    char failure[120] = "";
};

int reportPipe = -1;

pid_t forkChild(const std::function<void()>& body) {
    const pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    _exit(0);
}

[[noreturn]] void reportFrom(int pipeEnd, const std::function<Sample()>& work) {
    reportPipe = pipeEnd;
    try {
        reportAndExit(work());
    } catch (const std::exception& reason) {
        failAndExit(reason.what());
    }
}

rusage endChild(pid_t child) {
    rusage used{};
    if (child <= 0)
        return used;
    kill(child, SIGKILL); // one that has ended stays what it is
    wait4(child, nullptr, 0, &used);
    return used;
}

double processorTime(const rusage& used) {
    const auto microseconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return microseconds(used.ru_utime) + microseconds(used.ru_stime);
}

[[noreturn]] void send(const Report& report) {
    const ssize_t written = write(reportPipe, &report, sizeof report);
    _exit(written == sizeof report ? 0 : 1);
}

Report receive(int pipeEnd) {
    Report report;
    std::snprintf(report.failure, sizeof report.failure, "the client ended without a word");
    pollfd ready{pipeEnd, POLLIN, 0};
    if (poll(&ready, 1, kMostMilliseconds) == 0)
        std::snprintf(report.failure, sizeof report.failure, "not done after %d s", kMostMilliseconds / 1000);
    else
        keep(read(pipeEnd, &report, sizeof report));
    return report;
}

Sample sampleOf(const Report& report) {
    if (report.failure[0] != '\0')
        throw Failure(report.failure);
    Sample sample(report.figure);
    sample.percentile99 = report.percentile99;
    return sample;
}

} // namespace

void pinTo(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<unsigned>(cpu), &set);
    sched_setaffinity(0, sizeof set, &set);
}

Pinned::Pinned(int cpu) {
    sched_getaffinity(0, sizeof before_, &before_);
    pinTo(cpu);
}

Pinned::~Pinned() {
    sched_setaffinity(0, sizeof before_, &before_);
}

void needProcessorsFor(Placement placement) {
    if (placement == Placement::TwoCpus && sysconf(_SC_NPROCESSORS_ONLN) < 2)
        throw NotHere("one processor");
}

Sample measurePair(Placement placement, const std::function<void()>& server,
                   const std::function<Sample()>& client, PairUse* use) {
    needProcessorsFor(placement);
    int ends[2];
    need(pipe(ends) == 0, "no pipe");
    const pid_t serverPid = forkChild([&] {
        pinTo(0);
        close(ends[1]); // so that the end of the client is the end of the pipe
        server();
    });
    const pid_t clientPid = forkChild([&] {
        pinTo(placement == Placement::TwoCpus);
        reportFrom(ends[1], client);
    });
    close(ends[1]);
    const Report report = receive(ends[0]);
    close(ends[0]);
    const rusage clientUse = endChild(clientPid);
    const rusage serverUse = endChild(serverPid);
    if (use != nullptr)
        *use = {processorTime(clientUse) + processorTime(serverUse), static_cast<double>(serverUse.ru_nvcsw)};
    return sampleOf(report);
}

Sample measureAlone(const std::function<Sample()>& work) {
    int ends[2];
    need(pipe(ends) == 0, "no pipe");
    const pid_t child = forkChild([&] { reportFrom(ends[1], work); });
    close(ends[1]);
    const Report report = receive(ends[0]);
    close(ends[0]);
    endChild(child);
    return sampleOf(report);
}

void pauseFor(int milliseconds) {
    if (milliseconds > 0)
        usleep(1000 * static_cast<unsigned>(milliseconds));
}

void reportAndExit(Sample sample) {
    Report report;
    report.figure = sample.figure;
    report.percentile99 = sample.percentile99;
    send(report);
}

void failAndExit(const char* reason) {
    Report report;
    std::snprintf(report.failure, sizeof report.failure, "%s", reason);
    send(report);
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

Sample distribution(std::vector<double>& times) {
    need(!times.empty(), "no round was made");
    std::sort(times.begin(), times.end());
    Sample sample(times[times.size() / 2]);
    sample.percentile99 = times[times.size() * 99 / 100];
    return sample;
}

} // namespace bench
