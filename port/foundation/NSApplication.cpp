#include <AppKit/AppKit.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <dispatch/dispatch.h>
#include <port/bsd.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "dispatch/MainLoop.h"

namespace {

// What the program does about the signals that ask it to end; as it was when the application began to run.
struct sigaction interruptAction;
struct sigaction terminateAction;
std::atomic<int> askedSignal{0}; // that the loop has not answered yet

// Made once, for the life of the process: a signal may come at any time.
int endingEvent = -1;

// Sends SIGTERM again to a loop that does not answer.
constexpr time_t kPatienceSeconds = 5;
timer_t patience;
bool hasPatience = false;

void setPatience(time_t seconds) {
    const itimerspec limit{{}, {seconds, 0}};
    if (hasPatience)
        ::timer_settime(patience, 0, &limit, nullptr);
}

const struct sigaction& actionOf(int number) {
    return number == SIGINT ? interruptAction : terminateAction;
}

void act(int number) {
    siginfo_t information{};
    information.si_signo = number;
    if ((actionOf(number).sa_flags & SA_SIGINFO) != 0)
        actionOf(number).sa_sigaction(number, &information, nullptr);
    else
        actionOf(number).sa_handler(number);
}

void actAtOnce(int number) {
    if (actionOf(number).sa_handler != SIG_DFL)
        return act(number);
    ::signal(number, SIG_DFL);
    ::raise(number);
}

void noteSignal(int number) {
    const int error = errno;
    if (askedSignal.exchange(number) != 0)
        actAtOnce(number);
    setPatience(kPatienceSeconds);
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(endingEvent, &one, sizeof one);
    errno = error;
}

void answerSignal() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(endingEvent, &count, sizeof count);
    const int number = askedSignal.exchange(0);
    setPatience(0);
    if (actionOf(number).sa_handler == SIG_DFL)
        NSApplication::sharedApplication()->terminate();
    act(number);
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
    sigevent again = {};
    again.sigev_notify = SIGEV_SIGNAL;
    again.sigev_signo = SIGTERM;
    hasPatience = ::timer_create(CLOCK_MONOTONIC, &again, &patience) == 0;
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
    port_open_standard_descriptors();
    NSApplication* application = NSApplication::sharedApplication();
    application->setDelegate(makeDelegate());
    application->run();
}
