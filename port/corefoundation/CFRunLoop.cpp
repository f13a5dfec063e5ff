#include "corefoundation/CFRunLoop.h"

#include "corefoundation/CFSocket.h"
#include "corefoundation/CFString.h"
#include "dispatch/MainLoop.h"
#include "host/Deadline.h"

namespace {

using port::MainLoop;

constinit port::CFImmortal<__CFString> defaultMode{"kCFRunLoopDefaultMode"};
constinit port::CFImmortal<__CFString> commonModes{"kCFRunLoopCommonModes"};

bool isServed(CFRunLoopMode mode) {
    return CFEqual(mode, kCFRunLoopDefaultMode) != 0 || CFEqual(mode, kCFRunLoopCommonModes) != 0;
}

} // namespace

constinit const CFRunLoopMode kCFRunLoopDefaultMode = &defaultMode.value;
constinit const CFRunLoopMode kCFRunLoopCommonModes = &commonModes.value;

__CFRunLoop& __CFRunLoop::shared() {
    static __CFRunLoop& loop = *new __CFRunLoop;
    return loop;
}

void __CFRunLoop::stop() {
    if (depth_ == 0)
        return;
    stopped_ = true;
    MainLoop::shared().wake();
}

__CFRunLoopSource::__CFRunLoopSource(__CFSocket& socket)
    : CFObject(port::CFKind::RunLoopSource), socket_(socket) {
    socket_.retain();
}

__CFRunLoopSource::~__CFRunLoopSource() {
    socket_.release();
}

void __CFRunLoopSource::schedule(bool in) {
    if (isIn_.exchange(in) == in)
        return;
    if (in)
        retain();
    socket_.schedule(in);
    if (!in)
        release();
}

CFRunLoopRef CFRunLoopGetMain() {
    return &__CFRunLoop::shared();
}

void CFRunLoopRun() {
    __CFRunLoop::shared().run([] {
        MainLoop::shared().runTurn();
        return true;
    });
}

CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled) {
    if (!isServed(mode))
        return kCFRunLoopRunFinished;
    const port::Deadline deadline(seconds < 0 ? 0 : seconds);
    CFRunLoopRunResult result = kCFRunLoopRunTimedOut;
    const bool stopped = __CFRunLoop::shared().run([&] {
        const int left = deadline.milliseconds();
        const bool handled = MainLoop::shared().runOnce(left);
        if (handled && returnAfterSourceHandled != 0) {
            result = kCFRunLoopRunHandledSource;
            return false;
        }
        return left != 0;
    });
    return stopped ? kCFRunLoopRunStopped : result;
}

void CFRunLoopStop(CFRunLoopRef loop) {
    loop->stop();
}

void CFRunLoopWakeUp(CFRunLoopRef /*loop*/) {
    MainLoop::shared().wake();
}

void CFRunLoopAddSource(CFRunLoopRef /*loop*/, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    if (isServed(mode))
        source->schedule(true);
}

void CFRunLoopRemoveSource(CFRunLoopRef /*loop*/, CFRunLoopSourceRef source, CFRunLoopMode mode) {
    if (isServed(mode))
        source->schedule(false);
}
