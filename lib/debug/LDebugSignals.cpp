#include "debug/LDebugSignals.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <port/core.h>
#include <port/mach.h>
#include <unistd.h>

#include "base/LLimits.h"
#include "debug/LDebugThread.h"
#include "debug/LHangDetector.h"
#include "strings/LStringFormat.h"

constinit std::uint32_t lfoundation::gdwMainThreadId = 0;
constinit std::uint32_t lfoundation::gwDebugCurrentCommand = 1;
constinit std::uint32_t lfoundation::gwDebugLastCommand = 0;

// In this order, and before the statics of all other files.
PORT_MADE_FIRST LHangDetector lfoundation::gLHangDetector;
PORT_MADE_FIRST LLockObject lfoundation::loDebugThreads;

// Nobody in the library defines it.
extern "C" [[gnu::weak, gnu::visibility("default")]] const char LNoSignalHandlers;

namespace {

constinit std::atomic<bool> bLLibExceptionAlreadyTrapped{false};
constinit std::atomic<bool> bEnding{false};
constinit std::atomic<int> nLateStatus{0}; // of an end whose clean-up takes too long
alignas(16) constinit unsigned char mainSignalStack[LSignalStackSize]{};

bool IsFatal(int nSignal) {
    return nSignal == SIGABRT || nSignal == SIGILL || nSignal == SIGFPE || nSignal == SIGKILL ||
           nSignal == SIGBUS || nSignal == SIGSEGV;
}

void WriteSignal(int nSignal) {
    char szText[LPathBufferSize];
    const std::uint32_t dwLength = tplsnprintf(szText, sizeof szText, "SIGNAL%d\n", nSignal);
    [[maybe_unused]] const ssize_t nWritten = write(STDERR_FILENO, szText, dwLength);
}

// On SIGALRM, on any thread, inside of an `exit` that is stuck: so nothing but the bare end.
void EndAtOnce(int) {
    _exit(nLateStatus.load());
}

// Only the first end of the process counts: another thread's signal neither cuts its clean-up short nor
// changes its status.
bool BeginEnding(int nStatusWhenLate) {
    if (bEnding.exchange(true))
        return false;
    nLateStatus.store(nStatusWhenLate);
    return true;
}

// `exit` is nothing for a signal handler, but the clean-up is wanted; so it gets a time.
[[noreturn]] void EndProcess(int nStatus) {
    struct sigaction action {};
    action.sa_handler = EndAtOnce;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    // This thread has all signals blocked, being in a handler, and the others may block what they like.
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

// One that the run-time or the program has set stays: it is put back.
void SetSignalStack(unsigned char* pBytes) {
    const stack_t stack{pBytes, 0, LSignalStackSize};
    stack_t standing{};
    sigaltstack(&stack, &standing);
    if ((standing.ss_flags & SS_DISABLE) == 0)
        sigaltstack(&standing, nullptr);
}

} // namespace

LDebugLoadTime::LDebugLoadTime() {
    if (gdwMainThreadId != 0) // a plug-in that keeps its names to itself has one of its own
        return;
    gdwMainThreadId = mach_thread_self();
    if (&LNoSignalHandlers != nullptr)
        return;
    SetSignalStack(mainSignalStack);
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    action.sa_flags = SA_RESTART;
    Install(SIGPIPE, action);
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    action.sa_sigaction = LDebugSignalHandler;
    for (const int nSignal : {SIGQUIT, SIGILL, SIGFPE, SIGSEGV, SIGBUS})
        Install(nSignal, action);
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = LIntTermSignalHandler;
    for (const int nSignal : {SIGINT, SIGTERM})
        Install(nSignal, action);
}

// On the thread that it is for: each has its own place for one.
LDebugSignalStack::LDebugSignalStack() {
    if (&LNoSignalHandlers == nullptr)
        SetSignalStack(bytes);
}

LDebugSignalStack::~LDebugSignalStack() {
    const stack_t none{nullptr, SS_DISABLE, 0};
    stack_t standing{};
    sigaltstack(&none, &standing);
    if (standing.ss_sp != bytes && (standing.ss_flags & SS_DISABLE) == 0)
        sigaltstack(&standing, nullptr);
}

// The core file comes before the clean-up, which changes what it is to show.
void LDebugSignalHandler(int nSignal, __siginfo* pInfo, void*) {
    if (bLLibExceptionAlreadyTrapped.exchange(true)) {
        const bool bFault = IsFatal(nSignal) && pInfo != nullptr && pInfo->si_code > 0;
        if (bFault)
            signal(nSignal, SIG_DFL);
        return;
    }
    WriteSignal(nSignal);
    if (!IsFatal(nSignal) || !BeginEnding(LExitStatusFatalSignal))
        return;
    port_write_core(nSignal);
    EndProcess(LExitStatusFatalSignal);
}

// On any thread that does not block the signal, or from the main loop of an application that defers it. One
// that comes during an end is dropped: the first decides.
void LIntTermSignalHandler(int nSignal, __siginfo*, void*) {
    if ((nSignal == SIGINT || nSignal == SIGTERM) && BeginEnding(LExitStatusLate + nSignal))
        EndProcess(LExitStatusTerminated);
}
