// What the library does about signals, and the diagnostics' load-time initialisation.
//
// A program that holds a source file which includes this header, as the library's own threads, process
// start-up and thread table do, is initialised before any other static object of it is made:
//   SIGPIPE                                      ignored
//   SIGQUIT, SIGILL, SIGFPE, SIGSEGV, SIGBUS     LDebugSignalHandler
//   SIGINT, SIGTERM                              LIntTermSignalHandler
// All signals are blocked in both handlers. A program that holds none keeps its dispositions, and one that
// wants others sets them in `main`. A handler that the run-time installed before, as sanitizers do, stays.
//
// Thread-safety: the handlers are called by the system, on any thread.
#pragma once

#include <cstdint>
#include <port/bsd.h>

// Statuses that the process ends with.
constexpr int LExitStatusFatalSignal = 666; // a parent sees the low byte, 154
constexpr int LExitStatusTerminated = 0;
// Seconds that exit-time clean-up has when a signal ends the process: what the signal interrupted may hold a
// lock that the clean-up wants. The process then ends at once, with the same status.
constexpr unsigned int LExitTimeLimit = 5;

// The Mach thread that ran the load-time initialisation.
extern std::uint32_t gdwMainThreadId;

// Writes "SIGNAL" and the number to standard error and ends the process through `exit` with
// LExitStatusFatalSignal; returns for SIGQUIT. Only the first call of the process does anything, but for a
// fault, which would only come again: the system then ends the process.
void LDebugSignalHandler(int nSignal, __siginfo* pInfo, void* pContext);

// Ends the process through `exit`, so that exit-time clean-up runs, with LExitStatusTerminated.
void LIntTermSignalHandler(int nSignal, __siginfo* pInfo, void* pContext);

// What the includer refers to, so that the linker brings the module along.
struct LDebugLoadTime {
    LDebugLoadTime();
};
extern LDebugLoadTime gLDebugLoadTime;
[[gnu::used]] inline LDebugLoadTime* const pLDebugLoadTime = &gLDebugLoadTime;
