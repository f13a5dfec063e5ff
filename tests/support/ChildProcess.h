// What tests with real processes need: a private place for sockets and settings, and a child that is always
// reaped.
//
// Thread-safety: none; the test's main thread.
#pragma once

#include <csignal>
#include <port/UniqueFd.h>
#include <sys/types.h>
#include <vector>

#include "support/TemporaryFolder.h"

// A temporary folder that stands in for home, settings and runtime folder of this process and its children.
class PrivatePlace {
public:
    PrivatePlace();
    const std::string& Path() const { return folder.root.native(); }

private:
    TemporaryFolder folder;
};

// A running program with its standard output on a pipe; killed and reaped when it is destroyed.
class ChildProcess {
public:
    explicit ChildProcess(std::vector<std::string> arguments);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    pid_t Pid() const { return pid; }
    // The next line without its end; empty when none came in time or the output has ended.
    std::string ReadLine(int milliseconds = 10000) { return Read('\n', milliseconds); }
    // All that is left of the output, until the program closes it.
    std::string ReadAll(int milliseconds = 10000) { return Read('\0', milliseconds); }
    // The exit status, 128 + signal, or -1 when the program still runs after that time.
    int Wait(int milliseconds = 10000);
    void Kill(int signal) const { kill(pid, signal); }

private:
    std::string Read(char end, int milliseconds);

    pid_t pid = -1;
    port::UniqueFd output;
    bool reaped = false;
};

// The host program that stands beside the test program.
std::string HostPath(const char* name);
// Entries in /proc/PID/fd.
int CountDescriptors(pid_t pid);
long NowMilliseconds();
