// Ends in the way that its argument names; standard error goes to standard output, and a clean end says so.
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "debug/LDebugThread.h"
#include "debug/LHangDetector.h"
#include "threads/LThread.h"

namespace {

// A page that is mapped and cannot be used: without rights, or beyond the end of its file.
void Touch(int protection, int fd) {
    void* page = mmap(nullptr, 4096, protection, MAP_PRIVATE | (fd < 0 ? MAP_ANONYMOUS : 0), fd, 0);
    *static_cast<volatile char*>(page) = 1;
}

__attribute__((no_sanitize("undefined"))) int Divide(int by) {
    return 1000 / by;
}

// The allocator follows a link that this has spoiled, with its lock held, since there is a second thread; the
// clean-up then wants that lock.
void FaultInAllocator() {
    if (dlsym(RTLD_DEFAULT, "__asan_init") != nullptr || dlsym(RTLD_DEFAULT, "__tsan_init") != nullptr)
        exit(77);
    pthread_t thread;
    pthread_create(
        &thread, nullptr, [](void*) -> void* { return pause(), nullptr; }, nullptr);
    static void* volatile chunks[3] = {malloc(2000), malloc(2000), malloc(2000)};
    atexit([] { free(chunks[2]); });
    const auto links = reinterpret_cast<volatile std::uintptr_t*>(chunks[0]);
    free(chunks[0]);
    links[1] = 0x1000;
    chunks[1] = malloc(3000);
}

[[gnu::noinline]] int Overflow(int depth) {
    volatile char frame[4096];
    frame[depth % 4096] = 1;
    return depth < 0 ? 0 : Overflow(depth + 1) + frame[depth % 4096];
}

struct Overflowing : LThread {
    ~Overflowing() override { _StopAndWait(); }
    void ThreadFunction() override { exit(Overflow(0)); }
};

// What another thread gets while the process ends; it is there before, for a signal handler makes none.
std::atomic<bool> ending{false}, terminated{false};

void RaiseWhenEnding() {
    ending.wait(false);
    raise(SIGTERM);
    terminated = true;
    terminated.notify_one();
}

void Terminate() {
    ending = true;
    ending.notify_one();
    terminated.wait(false);
}

void End(const std::string& how) {
    if (how[0] == '+') {
        std::thread(RaiseWhenEnding).detach();
        atexit(Terminate);
        End(how.substr(1));
    } else if (how == "stack")
        exit(Overflow(0));
    else if (how == "thread")
        Overflowing().Start(31);
    else if (how == "stuck" && atexit([] { pause(); }) == 0)
        raise(SIGTERM);
    else if (how == "core") {
        const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_CORE, &unlimited);
        End("segv");
    } else if (how == "segv")
        Touch(PROT_NONE, -1);
    else if (how == "bus")
        Touch(PROT_READ | PROT_WRITE, open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    else if (how == "fpe")
        exit(Divide(atoi("0")));
    else if (how == "ill")
        __builtin_trap();
    else if (how == "malloc")
        FaultInAllocator();
    else if (how == "quit" && raise(SIGQUIT) == 0)
        End("segv");
    raise(atoi(how.c_str()));
}

} // namespace

int main(int, char** argv) {
    dup2(STDOUT_FILENO, STDERR_FILENO);
    atexit([] { [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, "clean\n", 6); });
    const std::string how = argv[1];
    if (how != "marker")
        return End(how), 0;
    LDebugHangDetectorInit();
    if (fork() == 0) // whose clean end is not this run's
        exit(close(STDOUT_FILENO));
    wait(nullptr);
    OutputDebugStringF("%s %s\n", gLHangDetector.HasMarker() ? "has" : "none", gLHangDetector.GetPath());
    for (;;)
        pause();
}
