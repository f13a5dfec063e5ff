// Running a shell command line to its end.
//
// Thread-safety: reentrant. Where the application ignores SIGCHLD the status of a command cannot be had, and
// it counts as failed.
#pragma once

#pragma GCC visibility push(default)

// Runs the command line through "/bin/sh" and blocks until it ends. True when it exited with status 0; false
// when the shell could not be started, the command failed, or a signal ended it. The process's own signals are as
// they were meanwhile; the command starts with default signal handling and the three standard descriptors.
// A template, so that it yields to a program's own function of that name.
template <typename = void>
bool RunCommandLineProcess(const char* szCommandLine);

#pragma GCC visibility pop
