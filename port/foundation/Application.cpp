#include <AppKit/AppKit.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <dispatch/dispatch.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "dispatch/MainLoop.h"

namespace {

// Made once, for the life of the process: the signal may come at any time.
int terminationEvent = -1;

void noteTermination(int) {
    const int error = errno;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(terminationEvent, &one, sizeof one);
    errno = error;
}

// Turns SIGTERM into work of the main loop, unless the program has its own way with it. A handler, and not
// a blocked signal with a descriptor: children would inherit the mask.
void watchTerminationSignal() {
    struct sigaction action = {};
    if (::sigaction(SIGTERM, nullptr, &action) != 0 || action.sa_handler != SIG_DFL)
        return;
    terminationEvent = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const auto terminate = [] { NSApplication::sharedApplication()->terminate(); };
    if (port::MainLoop::shared().addSource(terminationEvent, terminate) == port::kNoSource)
        return;
    action.sa_handler = noteTermination;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGTERM, &action, nullptr);
}

} // namespace

NSApplication* NSApplication::sharedApplication() {
    static NSApplication& shared = *new NSApplication;
    return &shared;
}

void NSApplication::run() {
    watchTerminationSignal();
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
