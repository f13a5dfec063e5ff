#include "debug/LDebugSignals.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <port/mach.h>
#include <unistd.h>

#include "base/LLimits.h"
#include "debug/LDebugThread.h"
#include "debug/LHangDetector.h"
#include "strings/LStringFormat.h"

constinit std::uint32_t gdwMainThreadId = 0;
constinit std::uint32_t gwDebugCurrentCommand = 1;
constinit std::uint32_t gwDebugLastCommand = 0;

// In this order, and before the statics of all other files: 101 is the first priority that a program may use.
[[gnu::init_priority(101)]] LHangDetector gLHangDetector;
[[gnu::init_priority(101)]] LLockObject loDebugThreads;
[[gnu::init_priority(101)]] LDebugLoadTime gLDebugLoadTime;

namespace {

constinit std::atomic<bool> bLLibExceptionAlreadyTrapped{false};
constinit std::atomic<int> nEndingStatus{LExitStatusTerminated};

bool IsFatal(int nSignal) {
    return nSignal == SIGABRT || nSignal == SIGILL || nSignal == SIGFPE || nSignal == SIGKILL ||
           nSignal == SIGBUS || nSignal == SIGSEGV;
}

void WriteSignal(int nSignal) {
    char szText[LPathBufferSize];
    const std::uint32_t dwLength = tplsnprintf(szText, sizeof szText, "SIGNAL%d\n", nSignal);
    [[maybe_unused]] const ssize_t nWritten = write(STDERR_FILENO, szText, dwLength);
}

void EndAtOnce(int) {
    _exit(nEndingStatus.load());
}

// `exit` is nothing for a signal handler, but the clean-up is wanted; so it gets a time.
[[noreturn]] void EndProcess(int nStatus) {
    nEndingStatus.store(nStatus);
    struct sigaction action {};
    action.sa_handler = EndAtOnce;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);
    alarm(LExitTimeLimit);
    exit(nStatus);
}

// A fresh program has no handlers: what stands is the run-time's own, whose report is worth more than ours.
void Install(int nSignal, struct sigaction action) {
    struct sigaction standing {};
    sigaction(nSignal, nullptr, &standing);
    if (standing.sa_handler != SIG_DFL && standing.sa_handler != SIG_IGN)
        return;
    sigfillset(&action.sa_mask);
    sigaction(nSignal, &action, nullptr);
}

} // namespace

LDebugLoadTime::LDebugLoadTime() {
    gdwMainThreadId = mach_thread_self();
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    action.sa_flags = SA_RESTART;
    Install(SIGPIPE, action);
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = LDebugSignalHandler;
    for (const int nSignal : {SIGQUIT, SIGILL, SIGFPE, SIGSEGV, SIGBUS})
        Install(nSignal, action);
    action.sa_sigaction = LIntTermSignalHandler;
    for (const int nSignal : {SIGINT, SIGTERM})
        Install(nSignal, action);
}

void LDebugSignalHandler(int nSignal, __siginfo* pInfo, void*) {
    if (bLLibExceptionAlreadyTrapped.exchange(true)) {
        const bool bFault = IsFatal(nSignal) && pInfo != nullptr && pInfo->si_code > 0;
        if (bFault)
            signal(nSignal, SIG_DFL);
        return;
    }
    WriteSignal(nSignal);
    if (IsFatal(nSignal))
        EndProcess(LExitStatusFatalSignal);
}

void LIntTermSignalHandler(int nSignal, __siginfo*, void*) {
    if (nSignal == SIGINT || nSignal == SIGTERM)
        EndProcess(LExitStatusTerminated);
}
