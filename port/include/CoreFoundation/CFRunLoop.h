// The main thread's run loop: it serves its sources, the main dispatch queue and what the port needs, in one
// wait.
//
// Thread-safety: CFRunLoopStop, CFRunLoopWakeUp, and adding and removing sources may be done on any thread;
// running belongs to the main thread, on which all call-backs come. Runs may be nested.
//
// There is one loop, that of the main thread, and one mode, which both names below mean.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

using CFRunLoopRef = struct __CFRunLoop*;
using CFRunLoopSourceRef = struct __CFRunLoopSource*;
using CFRunLoopMode = CFStringRef;
using CFTimeInterval = double; // seconds

#pragma GCC visibility push(default)

extern const CFRunLoopMode kCFRunLoopDefaultMode;
extern const CFRunLoopMode kCFRunLoopCommonModes;

enum CFRunLoopRunResult : std::int32_t {
    kCFRunLoopRunFinished = 1,
    kCFRunLoopRunStopped = 2,
    kCFRunLoopRunTimedOut = 3,
    kCFRunLoopRunHandledSource = 4,
};

// Never released.
CFRunLoopRef CFRunLoopGetMain();

// Runs until it is stopped, as the application's own loop: queued events are dispatched too.
void CFRunLoopRun();

// Runs until it is stopped or `seconds` have passed, rounded up to milliseconds, 0 or less: what is ready now;
// with `returnAfterSourceHandled` also when a call-back or a block of the main queue has run. Another mode has
// nothing to serve: kCFRunLoopRunFinished, at once.
CFRunLoopRunResult CFRunLoopRunInMode(CFRunLoopMode mode, CFTimeInterval seconds,
                                      Boolean returnAfterSourceHandled);

// Ends the innermost run; nothing when none is under way.
void CFRunLoopStop(CFRunLoopRef loop);

// Ends the wait of a run, which goes on.
void CFRunLoopWakeUp(CFRunLoopRef loop);

// The loop retains a source while it has it. A source that is added again, or was not there when it is
// removed, and any other mode, change nothing.
void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);
void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode);

#pragma GCC visibility pop
