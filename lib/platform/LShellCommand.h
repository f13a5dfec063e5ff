// Running a shell command line to its end.
//
// Thread-safety: reentrant. Where the application ignores SIGCHLD the status of a command cannot be had, and
// it counts as failed.
#pragma once

// Runs the command line through "/bin/sh" and blocks until it ends. True when it exited with status 0; false
// when the shell could not be started, the command failed, or a signal ended it. The command does not see the
// environment variables whose names are in the list, which ends with null; null takes none away.
bool RunCommandLineProcess(const char* szCommandLine, const char* const* pWithoutVariables = nullptr);
