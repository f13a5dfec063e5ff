// Events: one queue of the main thread into which any thread posts, the handlers of the application to which
// they are dispatched, and the wait in which the main thread receives them.
//
// Thread-safety: making, posting, retaining and releasing events, their parameters while one thread at a time
// uses them, and the functions of the queue may be used on any thread. Receiving, dispatching and everything
// about handlers belongs to the main thread.
//
// Ownership: CreateEvent and a pulling ReceiveNextEvent give the caller a reference, given back with
// ReleaseEvent; the queue holds one of its own while an event is in it. Parameters hold copies of bytes.
//
// Functions answer noErr or the status that stands beside them, and touch no output when they fail. Nothing
// but ReceiveNextEvent blocks. Times are seconds.
#pragma once

#include <CoreFoundation/CFRunLoop.h>
#include <CoreServices/CoreServices.h>

using ByteCount = unsigned long;
using ItemCount = unsigned long;
using EventTime = double; // seconds since the system started
using EventTimeout = double;
using EventAttributes = UInt32;
using EventPriority = SInt16;
using EventParamName = OSType;
using EventParamType = OSType;

using EventRef = struct OpaqueEventRef*;
using EventQueueRef = struct OpaqueEventQueueRef*;
using EventLoopRef = struct OpaqueEventLoopRef*;
using EventTargetRef = struct OpaqueEventTargetRef*;
using EventHandlerRef = struct OpaqueEventHandlerRef*;
using EventHandlerCallRef = struct OpaqueEventHandlerCallRef*;

#pragma GCC visibility push(default)

// A handler answers noErr when the event is handled, eventNotHandledErr to leave it to older handlers. The
// call reference is null: handlers do not call one another. The event stays the dispatcher's.
using EventHandlerProcPtr = OSStatus (*)(EventHandlerCallRef call, EventRef event, void* userData);
using EventHandlerUPP = EventHandlerProcPtr;

struct EventTypeSpec {
    OSType eventClass;
    UInt32 eventKind;
};

constexpr OSStatus eventAlreadyPostedErr = -9860;
constexpr OSStatus eventParameterNotFoundErr = -9870;
constexpr OSStatus eventNotHandledErr = -9874;
constexpr OSStatus eventLoopTimedOutErr = -9875;

constexpr EventAttributes kEventAttributeNone = 0;
constexpr EventAttributes kEventAttributeUserEvent = 1;
constexpr EventPriority kEventPriorityLow = 0;
constexpr EventPriority kEventPriorityStandard = 1;
constexpr EventPriority kEventPriorityHigh = 2;
constexpr EventTimeout kEventDurationNoWait = 0;
constexpr EventTimeout kEventDurationForever = -1;

constexpr EventParamType typeVoidPtr = 0x766F6964; // 'void': a pointer
constexpr EventParamType typeSInt32 = 0x6C6F6E67;  // 'long': a signed 32-bit number

// --- Events ---------------------------------------------------------------------------------------------

// A new event without parameters; a time of 0 means now. The allocator is ignored.
OSStatus CreateEvent(CFAllocatorRef allocator, OSType eventClass, UInt32 kind, EventTime when,
                     EventAttributes attributes, EventRef* event);

EventRef RetainEvent(EventRef event);
void ReleaseEvent(EventRef event);

OSType GetEventClass(EventRef event);
UInt32 GetEventKind(EventRef event);

// Copies `size` bytes under the name, over what stood there. paramErr: null data with a size.
OSStatus SetEventParameter(EventRef event, EventParamName name, EventParamType type, ByteCount size,
                           const void* data);

// Copies at most `size` bytes of the parameter into `data` (may be null); *actualSize (may be null) tells how
// many it has. eventParameterNotFoundErr: there is none of that name and type.
OSStatus GetEventParameter(EventRef event, EventParamName name, EventParamType type,
                           EventParamType* actualType, ByteCount size, ByteCount* actualSize, void* data);

// --- The queue ------------------------------------------------------------------------------------------
// First the higher priority, within a priority in the order of posting. In the application's own loop
// (`NSApplicationMain`, `dispatch_main`, `CFRunLoopRun`) queued events go to the dispatcher target by
// themselves; whoever receives them by ReceiveNextEvent sends them there.

// The queue of the main thread, on every thread. Never released.
EventQueueRef GetMainEventQueue();
EventQueueRef GetCurrentEventQueue();

// Appends the event, and wakes the main thread when it waits. paramErr: a null queue or event, or no such
// priority; eventAlreadyPostedErr: the event is queued.
OSStatus PostEventToQueue(EventQueueRef queue, EventRef event, EventPriority priority);

ItemCount GetNumEventsInQueue(EventQueueRef queue);

// True when the event is to be removed from the queue and released.
using EventComparatorProcPtr = Boolean (*)(EventRef event, void* data);
using EventComparatorUPP = EventComparatorProcPtr;

// Asks the comparator about each event that is queued now, in order. The comparator may use the queue.
OSStatus FlushSpecificEventsFromQueue(EventQueueRef queue, EventComparatorUPP comparator, void* data);

// --- The loop -------------------------------------------------------------------------------------------

EventLoopRef GetMainEventLoop();
CFRunLoopRef GetCFRunLoopFromEventLoop(EventLoopRef loop);

// The first queued event of one of the types, of any type when there are none in the list. Until there is one
// it serves the main run loop and the main dispatch queue, for `timeout` (rounded up to milliseconds) at
// most: eventLoopTimedOutErr. When `pull` is false the event stays queued and the queue's.
OSStatus ReceiveNextEvent(ItemCount typeCount, const EventTypeSpec* types, EventTimeout timeout, Boolean pull,
                          EventRef* event);

// --- Handlers -------------------------------------------------------------------------------------------

// Events that are sent to the dispatcher reach the application's handlers.
EventTargetRef GetEventDispatcherTarget();
EventTargetRef GetApplicationEventTarget();

// Calls the handlers of the event's type, the newest first, until one of them has handled it; the answer is
// that of the last handler called. eventNotHandledErr: there was none.
OSStatus SendEventToEventTarget(EventRef event, EventTargetRef target);

EventHandlerUPP NewEventHandlerUPP(EventHandlerProcPtr handler);
void DisposeEventHandlerUPP(EventHandlerUPP handler);

// *handlerRef (may be null) is what RemoveEventHandler takes. paramErr: a null target or handler, or no type.
OSStatus InstallEventHandler(EventTargetRef target, EventHandlerUPP handler, ItemCount typeCount,
                             const EventTypeSpec* types, void* userData, EventHandlerRef* handlerRef);

// From now on the handler is not called, not even by a dispatch that is under way. paramErr: null.
OSStatus RemoveEventHandler(EventHandlerRef handler);

#pragma GCC visibility pop
