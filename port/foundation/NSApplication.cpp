#include <AppKit/AppKit.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <dispatch/dispatch.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "dispatch/MainLoop.h"

namespace {

// What the program does about the signals that ask it to end; as it was when the application began to run.
struct sigaction interruptAction;
struct sigaction terminateAction;
std::atomic<int> askedSignal{0};

// Made once, for the life of the process: a signal may come at any time.
int endingEvent = -1;

void noteSignal(int number) {
    const int error = errno;
    askedSignal.store(number);
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(endingEvent, &one, sizeof one);
    errno = error;
}

void answerSignal() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(endingEvent, &count, sizeof count);
    const int number = askedSignal.load();
    const struct sigaction& action = number == SIGINT ? interruptAction : terminateAction;
    if (action.sa_handler == SIG_DFL)
        NSApplication::sharedApplication()->terminate();
    siginfo_t information{};
    information.si_signo = number;
    if ((action.sa_flags & SA_SIGINFO) != 0)
        action.sa_sigaction(number, &information, nullptr);
    else
        action.sa_handler(number);
}

void watchSignal(int number, struct sigaction& program) {
    if (::sigaction(number, nullptr, &program) != 0 || program.sa_handler == SIG_IGN)
        return;
    if (number == SIGINT && program.sa_handler == SIG_DFL)
        return; // ends the process at once
    struct sigaction action = {};
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    ::sigaction(number, &action, nullptr);
}

// Turns the signals into work of the main loop: a handler that ends the process runs destructors, which may
// want a lock that the interrupted code holds. Handlers, and not blocked signals with a descriptor: children
// would inherit the mask.
void watchSignals() {
    endingEvent = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (!port::MainLoop::shared().addSource(endingEvent, answerSignal))
        return;
    watchSignal(SIGINT, interruptAction);
    watchSignal(SIGTERM, terminateAction);
}

} // namespace

NSApplication* NSApplication::sharedApplication() {
    static NSApplication& shared = *new NSApplication;
    return &shared;
}

void NSApplication::run() {
    watchSignals();
    if (delegate_ != nullptr)
        delegate_->applicationDidFinishLaunching(
            NSNotification("NSApplicationDidFinishLaunchingNotification"));
    dispatch_main();
}

void NSApplication::terminate() {
    if (delegate_ != nullptr)
        delegate_->applicationWillTerminate(NSNotification("NSApplicationWillTerminateNotification"));
    std::exit(EXIT_SUCCESS);
}

int NSApplicationMain(int, char*[], NSApplicationDelegateFactory makeDelegate) {
    NSApplication* application = NSApplication::sharedApplication();
    application->setDelegate(makeDelegate());
    application->run();
}
