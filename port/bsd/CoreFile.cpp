#include <port/core.h>

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

// `_Fork` and no `fork`: that one's handlers may want a lock which the interrupted code holds.
void port_write_core(int signal) {
    const pid_t copy = _Fork();
    if (copy == 0) {
        ::signal(signal, SIG_DFL);
        sigset_t fatal;
        sigemptyset(&fatal);
        sigaddset(&fatal, signal);
        sigprocmask(SIG_UNBLOCK, &fatal, nullptr);
        raise(signal);
        _exit(128 + signal);
    }
    while (copy > 0 && waitpid(copy, nullptr, 0) < 0 && errno == EINTR) {
    }
}
