#include <Carbon/Carbon.h>
#include <CoreFoundation/CFSocket.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

namespace {

// A watched descriptor that counts its call-backs and invalidates itself at a number of them.
struct Watched {
    explicit Watched(int fd, CFOptionFlags flags = kCFSocketAutomaticallyReenableReadCallBack) {
        const CFSocketContext context{0, this, nullptr, nullptr, nullptr};
        socket = CFSocketCreateWithNative(nullptr, fd, kCFSocketReadCallBack, called, &context);
        CFSocketSetSocketFlags(socket, flags);
        source = CFSocketCreateRunLoopSource(nullptr, socket, 0);
        CFRunLoopAddSource(CFRunLoopGetMain(), source, kCFRunLoopDefaultMode);
        CFRunLoopAddSource(CFRunLoopGetMain(), source, kCFRunLoopCommonModes);
    }
    ~Watched() {
        CFRunLoopRemoveSource(CFRunLoopGetMain(), source, kCFRunLoopDefaultMode);
        CFRelease(source);
        CFRelease(socket);
    }
    static void called(CFSocketRef socket, CFSocketCallBackType, CFDataRef, const void*, void* info) {
        auto& self = *static_cast<Watched*>(info);
        if (++self.calls == self.callsToEnd)
            CFSocketInvalidate(socket);
    }
    int calls = 0, callsToEnd = -1;
    CFSocketRef socket;
    CFRunLoopSourceRef source;
};

CFRunLoopRunResult turn(double seconds = 0) {
    return CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, 1);
}

TEST(Sockets, CallBackWhileReadableOrOncePerArming) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    {
        Watched always(ends[0]), once(ends[0], 0), ending(ends[0]);
        ending.callsToEnd = 2;
        EXPECT_EQ(turn(), kCFRunLoopRunTimedOut);
        EXPECT_EQ(write(ends[1], "x", 1), 1); // never read
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(turn(10), kCFRunLoopRunHandledSource);
        EXPECT_EQ(always.calls * 100 + once.calls * 10 + ending.calls, 412);
        CFSocketDisableCallBacks(always.socket, kCFSocketReadCallBack);
        EXPECT_EQ(turn(), kCFRunLoopRunTimedOut);
        CFSocketEnableCallBacks(once.socket, kCFSocketReadCallBack);
        EXPECT_EQ(turn(10), kCFRunLoopRunHandledSource);
        EXPECT_EQ(turn(), kCFRunLoopRunTimedOut);
        EXPECT_EQ(once.calls, 2);
        CFSocketEnableCallBacks(once.socket, kCFSocketReadCallBack);
        CFRunLoopRemoveSource(CFRunLoopGetMain(), once.source, kCFRunLoopDefaultMode);
        EXPECT_EQ(turn(), kCFRunLoopRunTimedOut);
        EXPECT_EQ(CFRunLoopRunInMode(CFSTR("other"), 10, 0), kCFRunLoopRunFinished);
    }
    for (const bool closes : {false, true}) {
        Watched(ends[1], closes ? kCFSocketCloseOnInvalidate : 0);
        EXPECT_EQ(fcntl(ends[1], F_GETFD) == -1, closes);
    }
    close(ends[0]);
    EXPECT_EQ(CFSocketCreateWithNative(nullptr, -1, kCFSocketReadCallBack, Watched::called, nullptr),
              nullptr);
}

void postNext() {
    EventRef event = nullptr;
    CreateEvent(nullptr, 1, 1, 0, kEventAttributeNone, &event);
    PostEventToQueue(GetMainEventQueue(), event, kEventPriorityStandard);
    ReleaseEvent(event);
}

// Runs inside runs, each of which is ended by the end of the one further in.
OSStatus nest(EventHandlerCallRef, EventRef, void* depth) {
    if (--*static_cast<int*>(depth) > 0) {
        postNext();
        CFRunLoopRun();
    }
    CFRunLoopStop(CFRunLoopGetMain());
    EXPECT_EQ(turn(), kCFRunLoopRunTimedOut); // another run is not stopped by that
    return noErr;
}

TEST(RunLoop, DispatchesEventsAndStopsTheInnermostRun) {
    const EventTypeSpec type{1, 1};
    int depth = 3;
    InstallEventHandler(GetApplicationEventTarget(), nest, 1, &type, &depth, nullptr);
    CFRunLoopStop(CFRunLoopGetMain()); // nothing runs
    const std::jthread other(postNext);
    CFRunLoopRun();
    EXPECT_EQ(depth, 0);
}

} // namespace
