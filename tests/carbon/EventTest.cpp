#include <Carbon/Carbon.h>
#include <CoreFoundation/CFSocket.h>

#include <algorithm>
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <thread>

namespace {

constexpr OSType kClass = 0x54657374;

// The number is the last of five parameters, after texts of all lengths.
EventRef makeEvent(UInt32 kind, SInt32 number) {
    EventRef event = nullptr;
    CreateEvent(nullptr, kClass, kind, 0, kEventAttributeNone, &event);
    for (EventParamName name = 1; name < 5; ++name)
        SetEventParameter(event, name, kClass, name * 4, "abcdefghijklmnop");
    SetEventParameter(event, 5, typeSInt32, sizeof number, &number);
    return event;
}

SInt32 numberOf(EventRef event) {
    SInt32 number = -1;
    EXPECT_EQ(GetEventParameter(event, 5, typeSInt32, nullptr, sizeof number, nullptr, &number), noErr);
    return number;
}

void post(UInt32 kind, SInt32 number, EventPriority priority = kEventPriorityStandard) {
    const EventRef event = makeEvent(kind, number);
    ASSERT_EQ(PostEventToQueue(GetMainEventQueue(), event, priority), noErr);
    ReleaseEvent(event);
}

// The number of the next event, -1 when there is none.
SInt32 receive(EventTimeout timeout = kEventDurationNoWait) {
    EventRef event = nullptr;
    if (ReceiveNextEvent(0, nullptr, timeout, 1, &event) != noErr)
        return -1;
    const SInt32 number = numberOf(event);
    ReleaseEvent(event);
    return number;
}

// Against a plain list.
TEST(Queue, KeepsOrderWithinPrioritiesThroughPullsAndFlushes) {
    struct Entry {
        int priority;
        UInt32 kind;
        SInt32 number;
    };
    std::vector<Entry> model;
    std::mt19937 random(20);
    for (SInt32 step = 0; step < 20000; ++step) {
        const UInt32 kind = random() % 4;
        if (const auto action = random() % 100; action < 50) {
            const auto priority = static_cast<EventPriority>(random() % 3);
            post(kind, step, priority);
            const auto behind = [&](const Entry& entry) { return entry.priority < priority; };
            model.insert(std::ranges::find_if(model, behind), {priority, kind, step});
        } else if (action < 98) {
            const auto isWanted = [kind](const Entry& entry) { return kind == 0 || entry.kind == kind; };
            const EventTypeSpec type{kClass, kind};
            const bool pull = random() % 4 != 0;
            EventRef event = nullptr;
            const OSStatus status = ReceiveNextEvent(kind == 0 ? 0 : 1, &type, 0, pull ? 1 : 0, &event);
            const auto expected = std::ranges::find_if(model, isWanted);
            ASSERT_EQ(status, expected != model.end() ? OSStatus{noErr} : eventLoopTimedOutErr) << step;
            ASSERT_TRUE(status != noErr || numberOf(event) == expected->number) << step;
            if (status == noErr && pull) {
                ReleaseEvent(event);
                model.erase(expected);
            }
        } else {
            auto comparator = [](EventRef event, void*) -> Boolean { return numberOf(event) % 3 != 0; };
            FlushSpecificEventsFromQueue(GetMainEventQueue(), comparator, nullptr);
            std::erase_if(model, [](const Entry& entry) { return entry.number % 3 != 0; });
        }
        ASSERT_EQ(GetNumEventsInQueue(GetMainEventQueue()), model.size()) << step;
    }
    while (receive() >= 0) {
    }
}

TEST(Queue, AFlushAsksAboutNothingThatLeftMeanwhile) {
    for (SInt32 number = 0; number < 6; ++number)
        post(1, number);
    std::vector<SInt32> asked;
    auto comparator = [](EventRef event, void* data) -> Boolean {
        static_cast<std::vector<SInt32>*>(data)->push_back(numberOf(event));
        for (SInt32 number = 0; numberOf(event) == 0 && number < 3; ++number)
            EXPECT_EQ(receive(), number);
        post(1, 99);
        return 1;
    };
    FlushSpecificEventsFromQueue(GetMainEventQueue(), comparator, &asked);
    EXPECT_EQ(asked, (std::vector<SInt32>{0, 3, 4, 5}));
    for (std::size_t i = 0; i < asked.size(); ++i)
        EXPECT_EQ(receive(), 99);
    EXPECT_EQ(receive(), -1);
}

TEST(Loop, ServesTheMainQueueWhileItWaitsAndUnderAFloodOfEvents) {
    dispatch_async(dispatch_get_main_queue(), [] { post(1, 42); });
    EXPECT_EQ(receive(kEventDurationForever), 42);
    EXPECT_EQ(receive(0.0005), -1);
    bool ran = false;
    dispatch_async(dispatch_get_main_queue(), [&] { ran = true; });
    for (int taken = 0; !ran && taken < 1000; ++taken) {
        post(1, taken);
        receive(kEventDurationForever);
    }
    EXPECT_TRUE(ran);
}

std::string called;
EventHandlerRef handlers[3];

template <char kName>
OSStatus handle(EventHandlerCallRef, EventRef, void*) {
    called += kName;
    if (kName == 'c') {
        EXPECT_EQ(RemoveEventHandler(handlers[2]), noErr); // this one
        EXPECT_EQ(RemoveEventHandler(handlers[1]), noErr);
    }
    return kName == 'a' ? OSStatus{noErr} : eventNotHandledErr;
}

TEST(Handlers, AreCalledNewestFirstUntilOneHandlesAndMayBeRemovedByOne) {
    const EventTypeSpec types[] = {{kClass, 1000}, {kClass, 2}};
    const EventRef event = makeEvent(2, 0);
    const EventHandlerProcPtr procedures[] = {handle<'a'>, handle<'b'>, handle<'c'>};
    for (std::size_t i = 0; i < 3; ++i) {
        InstallEventHandler(GetApplicationEventTarget(), procedures[i], 2, types, nullptr, &handlers[i]);
        EXPECT_EQ(SendEventToEventTarget(event, GetEventDispatcherTarget()), noErr);
    }
    EXPECT_EQ(called, "abaca");
    EXPECT_EQ(RemoveEventHandler(handlers[0]), noErr);
    EXPECT_EQ(SendEventToEventTarget(event, GetEventDispatcherTarget()), eventNotHandledErr);
    for (const OSStatus expected : {OSStatus{noErr}, eventAlreadyPostedErr})
        EXPECT_EQ(PostEventToQueue(GetMainEventQueue(), event, kEventPriorityLow), expected);
    EXPECT_EQ(receive(), 0);
    ReleaseEvent(event);
}

// Runs inside runs, each of which is ended by the end of the one further in.
OSStatus nest(EventHandlerCallRef, EventRef, void* depth) {
    if (--*static_cast<int*>(depth) > 0) {
        post(3, 0);
        CFRunLoopRun();
    }
    CFRunLoopStop(CFRunLoopGetMain());
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, 1), kCFRunLoopRunTimedOut)
        << "not stopped by that";
    return noErr;
}

TEST(Loop, DispatchesEventsAndStopsTheInnermostRun) {
    const EventTypeSpec type{kClass, 3};
    int depth = 3;
    InstallEventHandler(GetApplicationEventTarget(), nest, 1, &type, &depth, nullptr);
    CFRunLoopStop(CFRunLoopGetMain()); // nothing runs
    const std::jthread other(post, 3, 0, kEventPriorityStandard);
    CFRunLoopRun();
    EXPECT_EQ(depth, 0);
}

// The second call ends the socket, which closes its descriptor.
void isReadable(CFSocketRef socket, CFSocketCallBackType, CFDataRef, const void*, void* calls) {
    if (++*static_cast<int*>(calls) == 2)
        CFSocketInvalidate(socket);
}

TEST(Loop, CallsASocketBackWhileItIsReadableAndLetsItEndThere) {
    int ends[2], calls = 0;
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const CFSocketContext context{0, &calls, nullptr, nullptr, nullptr};
    const CFSocketRef socket =
        CFSocketCreateWithNative(nullptr, ends[0], kCFSocketReadCallBack, isReadable, &context);
    const CFRunLoopSourceRef source = CFSocketCreateRunLoopSource(nullptr, socket, 0);
    CFRunLoopAddSource(CFRunLoopGetMain(), source, kCFRunLoopDefaultMode);
    EXPECT_EQ(write(ends[1], "x", 1), 1); // never read
    for (const SInt32 expected :
         {kCFRunLoopRunHandledSource, kCFRunLoopRunHandledSource, kCFRunLoopRunTimedOut})
        EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, 1), expected) << calls;
    EXPECT_EQ(fcntl(ends[0], F_GETFD), -1);
    CFRunLoopRemoveSource(CFRunLoopGetMain(), source, kCFRunLoopDefaultMode);
    CFRelease(source);
    CFRelease(socket);
    close(ends[1]);
}

} // namespace
