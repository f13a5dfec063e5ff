// What the library does about signals, and the diagnostics' load-time initialisation.
//
// A program one of whose sources includes this header, or one of those that bring it along (threads/LThread.h,
// debug/LDebugThread.h, debug/LHangDetector.h, platform/LProcessUtilities.h), is initialised before any other
// static object of it is made:
//   SIGPIPE                                      ignored
//   SIGQUIT, SIGILL, SIGFPE, SIGSEGV, SIGBUS     LDebugSignalHandler
//   SIGINT, SIGTERM                              LIntTermSignalHandler
// All signals are blocked in both handlers. A program that includes none keeps its dispositions, with the shared
// library too, and one that wants others sets them in `main`. A handler that the run-time installed before, as
// sanitizers do, stays.
//
// A program that is linked with `-Wl,--defsym=LNoSignalHandlers=1` keeps its dispositions whatever it includes:
// nothing of the above is installed then, and SIGPIPE ends it when it writes to a pipe that nobody reads.
//
// Thread-safety: the handlers are called by the system, on any thread.
#pragma once

#include <cstdint>
#include <port/bsd.h>
#include <port/init.h>

#pragma GCC visibility push(default)

// Statuses that the process ends with.
constexpr int LExitStatusFatalSignal = 666; // a parent sees the low byte, 154
constexpr int LExitStatusTerminated = 0;
// Seconds that exit-time clean-up has when a signal ends the process: what the signal interrupted may hold a
// lock that the clean-up wants. The process then ends at once: with the same status after a fatal signal, with
// LExitStatusLate and the signal's number, as shells count, after SIGINT and SIGTERM.
constexpr unsigned int LExitTimeLimit = 5;
constexpr int LExitStatusLate = 128;

// The Mach thread that ran the load-time initialisation.
inline namespace lfoundation {
extern std::uint32_t gdwMainThreadId;
}

// Writes "SIGNAL" and the number to standard error, lets the system write its core file where it is set up to
// write any, and ends the process through `exit` with LExitStatusFatalSignal; returns for SIGQUIT. Only the
// first call of the process does anything, but for a fault, which would only come again: the system then ends
// the process.
// The core file is that of a copy of the process: all of its memory, and of its threads the faulting one. A
// program that wants all threads in it leaves the handlers out.
void LDebugSignalHandler(int nSignal, __siginfo* pInfo, void* pContext);

// Ends the process through `exit`, so that exit-time clean-up runs, with LExitStatusTerminated. When an end by
// a signal is under way it returns: the first one decides the status.
void LIntTermSignalHandler(int nSignal, __siginfo* pInfo, void* pContext);

// Bytes of the stack of its own on which a fault is handled, so that one whose own is used up ends the process
// like any other: the thread of the load time has one, and every LThread.
constexpr unsigned long LSignalStackSize = 65536;

// Such a stack for the calling thread, for the life of a block; one that it has already stays.
class LDebugSignalStack {
public:
    LDebugSignalStack();
    LDebugSignalStack(const LDebugSignalStack&) = delete;
    LDebugSignalStack& operator=(const LDebugSignalStack&) = delete;
    ~LDebugSignalStack();

private:
    alignas(16) unsigned char bytes[LSignalStackSize];
};

// The initialisation; what comes after the first does nothing. It is the includer's, as the streams' is, and not
// that of the library's own sources: a shared library is loaded whole, also by who wants none of this.
struct LDebugLoadTime {
    LDebugLoadTime();
};
#ifndef LFOUNDATION_ROOM
inline namespace lfoundation {
PORT_MADE_FIRST inline LDebugLoadTime gLDebugLoadTime;
}
#endif

#pragma GCC visibility pop
