// A shell command on a thread of its own, whose end is waited for through a process interface.
//
// Thread-safety: the data is shared by the requester and the worker through its two signals only: the results
// are written before the done signal is set and read after it.
//
// The requester makes the data with `new`, fills the command, starts a thread on `ProcessRunThreadCallback`
// and waits for the done signal. It sets the release signal when it needs the data no longer, after reading
// the results or at once when it is told to stop, and does not touch the data afterwards: the worker deletes
// it.
#pragma once

#include "strings/LString.h"
#include "threads/LProcessInterface.h"
#include "threads/LSignalObject.h"

#pragma GCC visibility push(default)

struct ProcessRunData {
    LStringLongTemplate<char> sCommand;
    LSignalObject done;
    LSignalObject release;
    int nResult = 1;    // 1 not run yet, 0 run, 2 could not be run or its status could not be collected
    int nExitCode = -1; // the exit status, -1 unless the command exited normally
};

// The entry of the worker thread; takes the ProcessRunData over. Both signals are usable. Runs the command with
// an empty standard input. Returns null. A template, so that it yields to a program's own function
// of that name.
template <typename = void>
void* ProcessRunThreadCallback(void* pData);

// Runs the command and waits for its end. LProcessFinished with the exit status in `nExitCode` (-1 when the
// command ended abnormally); LProcessStopped when the work is to stop, while the command runs on by itself;
// LProcessFailed when it could not be run. `nExitCode` is -1 in the last two cases.
int ProcessRunCommand(LProcessInterface& process, const char* szCommand, int& nExitCode);

#pragma GCC visibility pop
