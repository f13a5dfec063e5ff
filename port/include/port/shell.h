// Shell command lines, run to their end or started and waited for.
//
// Thread-safety: reentrant, as long as nobody changes the environment meanwhile. An object belongs to one
// thread.
//
// A command starts with default signal handling, no signal blocked, and no descriptor but the three standard
// ones. This process's own signals are as they were while it runs. Where the application ignores SIGCHLD the
// status of a command cannot be had.
#pragma once

#include <port/UniqueFd.h>
#include <sys/types.h>

#pragma GCC visibility push(default)

// Runs the line through "/bin/sh" and blocks until it ends. The status as `waitpid` gives it, -1 with errno
// when the shell could not be started or its status cannot be had.
int port_system(const char* commandLine);

// Starts the line through "/bin/sh" with these descriptors as its standard input and output, -1 for this process's
// own. The process, which the caller waits for or lets go; -1 with errno when it could not be started.
pid_t port_start_shell(const char* commandLine, int input, int output);
// Blocks until the child has ended. The status as of `port_system`.
int port_wait(pid_t child);
// For who does not want to know: whenever the child ends it leaves no zombie. Where the system has no room for the
// thread that waits for a child that runs, it does.
void port_let_go(pid_t child);

namespace port {

// A command in a session of its own that is ended with this process: the terminal sends it no signals, it can
// ask nobody, and its standard input is empty.
class ShellCommand {
public:
    ShellCommand() = default;
    ShellCommand(const ShellCommand&) = delete;
    ShellCommand& operator=(const ShellCommand&) = delete;
    // Ends a command that runs.
    ~ShellCommand();

    // The command does not see the variables whose names are in the list, which ends with null; null takes
    // none away. False with errno when the shell could not be started. Once for each object.
    bool start(const char* commandLine, const char* const* withoutVariables);
    // Readable once the command has ended; -1 when there is nothing to wait for.
    int endDescriptor() const { return end_.get(); }
    bool hasEnded() const;
    // The bytes that it has written anywhere: its last program alone, where a line runs several. 0 when that
    // cannot be told.
    unsigned long long written() const;
    // Asks the command to end and kills what is left of it after two seconds, all its processes.
    void end();
    // Waits for the command's end. The status as of `port_system`.
    int wait();

private:
    bool awaitEnd(int milliseconds) const;

    pid_t process_ = -1;
    int status_ = -1; // of a command that has ended
    UniqueFd end_;
};

} // namespace port

#pragma GCC visibility pop
