// Whose signals are they, as soon as the program's own statics are made? With THREADS it includes the library's
// threads.
#include <base/LSleep.h>
#include <csignal>
#include <cstdio>
#ifdef THREADS
#include <threads/LThread.h>
#endif

static const bool handled = [] {
    struct sigaction standing {};
    return sigaction(SIGTERM, nullptr, &standing) == 0 && standing.sa_handler != SIG_DFL;
}();

int main() {
    LSleepMilliseconds(0);
    std::puts(handled ? "the library's" : "the program's");
}
