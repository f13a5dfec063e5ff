#include "host/DetachedThread.h"

#include "host/SystemCalls.h"

#include <csignal>
#include <initializer_list>
#include <pthread.h>

namespace port {
namespace {

// A thread is born with the mask of the one that makes it.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t set;
        sigfillset(&set);
        for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            sigdelset(&set, signal);
        pthread_sigmask(SIG_BLOCK, &set, &before_);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

} // namespace

bool startDetachedThread(void* (*body)(void* argument), void* argument) {
    const BlockedSignals blocked;
    return sys::startThread(body, argument);
}

} // namespace port
