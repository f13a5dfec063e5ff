#include "threads/LProcessEventsHandler.h"

#include <Carbon/Carbon.h>

#include <algorithm>
#include <port/internal/exported.h>

#include "base/LDeadline.h"
#include "strings/LArray.h"

namespace {

constexpr OSType kWakeUpClass = 0x4C536E63;             // 'LSnc'
constexpr UInt32 kWakeUpKind = 0x4C536E6B;              // 'LSnk'
constexpr EventParamName kSocketParameter = 0x4C53736F; // 'LSso'
constexpr OSType kMarkerClass = 0x506C6163;             // 'Plac'
constexpr UInt32 kMarkerKind = kMarkerClass;
constexpr EventParamName kTakenParameter = kMarkerClass;
constexpr UInt32 kEndingKind = 3; // ends a plain wait, whatever its class

constexpr EventTimeout kAskSlice = 0.01;
constexpr ItemCount kFirstAttempts = 4;

constinit int nWakeUps = 0; // posted and not taken, as far as the waits know; of the main thread

struct Slice {
    bool bReceived = false;
    bool bDispatched = false; // not one of the waits' own events
    UInt32 dwKind = 0;        // of a dispatched event
};

bool IsOf(EventRef pEvent, OSType dwClass, UInt32 dwKind) {
    return GetEventClass(pEvent) == dwClass && GetEventKind(pEvent) == dwKind;
}

// A marker may come out in a wait further in than the call that posted it; it tells that call itself.
bool IsTaken(EventRef pMarker) {
    return GetEventParameter(pMarker, kTakenParameter, typeSInt32, nullptr, 0, nullptr, nullptr) == noErr;
}

// On the main thread, asleep in its loop until an event or the time. The handler may wait in here itself.
Slice ProcessEvent(EventTimeout dTimeout) {
    Slice slice;
    EventRef pEvent = nullptr;
    if (ReceiveNextEvent(0, nullptr, dTimeout, 1, &pEvent) != noErr)
        return slice;
    slice.bReceived = true;
    if (IsOf(pEvent, kMarkerClass, kMarkerKind)) {
        SetEventParameter(pEvent, kTakenParameter, typeSInt32, 0, nullptr);
    } else if (GetEventClass(pEvent) == kWakeUpClass) {
        --nWakeUps;
    } else {
        slice.dwKind = GetEventKind(pEvent);
        slice.bDispatched = true;
        SendEventToEventTarget(pEvent, GetEventDispatcherTarget());
    }
    ReleaseEvent(pEvent);
    return slice;
}

struct LSocketLoopSourcePair {
    CFSocketRef pSocket;
    CFRunLoopSourceRef pSource; // null when the descriptor cannot be watched
};

// Has descriptors watched by the main run loop, for the life of a wait.
class DescriptorWatch {
public:
    explicit DescriptorWatch(const LVector<int>& descriptors);
    DescriptorWatch(const DescriptorWatch&) = delete;
    DescriptorWatch& operator=(const DescriptorWatch&) = delete;
    ~DescriptorWatch();

    // From here each descriptor wakes the loop once: one that stays readable would flood the waits further
    // in, which look at other signals.
    void Arm() const;
    bool IsComplete() const { return bComplete; }

private:
    static CFRunLoopRef _GetLoop() { return GetCFRunLoopFromEventLoop(GetMainEventLoop()); }
    static Boolean _IsWakeUp(EventRef pEvent, void*) { return GetEventClass(pEvent) == kWakeUpClass; }
    void _Add(LSocketLoopSourcePair& pair, int nDescriptor);

    LArray<LSocketLoopSourcePair> pairs;
    bool bComplete = true;
};

DescriptorWatch::DescriptorWatch(const LVector<int>& descriptors) : pairs(descriptors.GetSize()) {
    for (unsigned long i = 0; i < pairs.GetCount(); ++i)
        _Add(pairs[i], descriptors[i]);
}

// The descriptor is the signal's: the socket never closes it.
void DescriptorWatch::_Add(LSocketLoopSourcePair& pair, int nDescriptor) {
    pair.pSocket = CFSocketCreateWithNative(kCFAllocatorDefault, nDescriptor, kCFSocketReadCallBack,
                                            LProcessEventsHandler::SocketCallBack, nullptr);
    if (pair.pSocket == nullptr) {
        bComplete = false;
        return;
    }
    CFSocketSetSocketFlags(pair.pSocket,
                           CFSocketGetSocketFlags(pair.pSocket) &
                               ~(kCFSocketCloseOnInvalidate | kCFSocketAutomaticallyReenableReadCallBack));
    pair.pSource = CFSocketCreateRunLoopSource(kCFAllocatorDefault, pair.pSocket, 0);
    CFRunLoopAddSource(_GetLoop(), pair.pSource, kCFRunLoopDefaultMode);
}

// A wake-up that nobody has taken would reach a loop that knows nothing of it. The waits further out look at
// their signals before they sleep again, so theirs may go as well.
DescriptorWatch::~DescriptorWatch() {
    for (unsigned long i = 0; i < pairs.GetCount(); ++i) {
        if (pairs[i].pSocket == nullptr)
            continue;
        CFRunLoopRemoveSource(_GetLoop(), pairs[i].pSource, kCFRunLoopDefaultMode);
        CFSocketInvalidate(pairs[i].pSocket);
        CFRelease(pairs[i].pSource);
        CFRelease(pairs[i].pSocket);
    }
    if (nWakeUps > 0)
        FlushSpecificEventsFromQueue(GetMainEventQueue(), _IsWakeUp, nullptr);
    nWakeUps = 0;
}

void DescriptorWatch::Arm() const {
    for (unsigned long i = 0; i < pairs.GetCount(); ++i)
        if (pairs[i].pSocket != nullptr)
            CFSocketEnableCallBacks(pairs[i].pSocket, kCFSocketReadCallBack);
}

LVector<int> DescriptorsOf(LSignalObjectRef signal) {
    LVector<int> descriptors;
    descriptors.SetSize(1);
    descriptors[0] = signal.GetReadDescriptor();
    return descriptors;
}

LVector<int> DescriptorsOf(const LSignalObjectGroup& group) {
    LVector<int> descriptors;
    for (int nDescriptor = 0; nDescriptor <= group.GetHighest(); ++nDescriptor) {
        if (!group.Contains(nDescriptor))
            continue;
        descriptors.SetSize(descriptors.GetSize() + 1);
        descriptors[descriptors.GetSize() - 1] = nDescriptor;
    }
    return descriptors;
}

// The signal waits have no value for "no limit", the deadline has: a millisecond less than seven weeks.
LDeadline DeadlineOf(unsigned int timeout) {
    return LDeadline(std::min(timeout, LNoTimeLimit - 1));
}

// `signal` is one signal or a group of them.
template <typename Signal>
int WaitSignal(const LProcessEventsHandler& handler, const Signal& signal, unsigned int timeout) {
    if (timeout == 0)
        return LProcessWaitFailed;
    const LDeadline deadline = DeadlineOf(timeout);
    const DescriptorWatch watch(DescriptorsOf(signal));
    do {
        // Armed before the look: a signal that is set behind the look posts a wake-up, and ends the wait below.
        watch.Arm();
        if (signal.IsSignaled())
            return LProcessWaitSignaled;
        if (handler.IsProcessEventHandlerToStop())
            return LProcessWaitStopped;
        const EventTimeout dRemaining = deadline.GetRemaining() * 0.001;
        // Without a descriptor to be woken by, the signal must be looked at from time to time.
        ProcessEvent(watch.IsComplete() ? dRemaining : std::min(dRemaining, kAskSlice));
    } while (!deadline.IsPast());
    return LProcessWaitFailed;
}

} // namespace

int LProcessEventsHandler::ProcessWaitForeverAndProcessEvents() const {
    while (!IsProcessEventHandlerToStop())
        ProcessEvent(kAskSlice);
    return LProcessWaitStopped;
}

int LProcessEventsHandler::ProcessWaitAndProcessEvents(unsigned int timeout) const {
    if (timeout == LNoTimeLimit)
        return ProcessWaitForeverAndProcessEvents();
    if (IsProcessEventHandlerToStop())
        return LProcessWaitStopped;
    const LDeadline deadline(timeout);
    while (!deadline.IsPast()) {
        const Slice slice = ProcessEvent(deadline.GetRemaining() * 0.001);
        if (slice.dwKind == kEndingKind || IsProcessEventHandlerToStop())
            return LProcessWaitStopped;
    }
    return LProcessWaitSignaled;
}

int LProcessEventsHandler::ProcessWaitSignalAndProcessEvents(LSignalObjectRef signal,
                                                             unsigned int timeout) const {
    return WaitSignal(*this, signal, timeout);
}

int LProcessEventsHandler::ProcessWaitSignalObjectGroupAndProcessEvents(LSignalObjectGroup& group,
                                                                        unsigned int timeout) const {
    return WaitSignal(*this, group, timeout);
}

int LProcessEventsHandler::ProcessWaitSignalForeverAndProcessEvents(LSignalObjectRef signal) const {
    const DescriptorWatch watch(DescriptorsOf(signal));
    for (;; ProcessEvent(kAskSlice)) {
        watch.Arm();
        if (signal.IsSignaled())
            return LProcessWaitSignaled;
        if (IsProcessEventHandlerToStop())
            return LProcessWaitStopped;
    }
}

bool LProcessEventsHandler::ClearEventQueue() {
    return LProcessClearEventQueue();
}

// On the main thread, from its loop: what ends the wait must be an event, for ReceiveNextEvent returns for
// nothing else.
void LProcessEventsHandler::SocketCallBack(__CFSocket* pSocket, unsigned long, const __CFData*, const void*,
                                           void*) {
    const SInt32 nDescriptor = CFSocketGetNative(pSocket);
    EventRef pEvent = nullptr;
    CreateEvent(nullptr, kWakeUpClass, kWakeUpKind, 0, kEventAttributeNone, &pEvent);
    SetEventParameter(pEvent, kSocketParameter, typeSInt32, sizeof nDescriptor, &nDescriptor);
    nWakeUps += PostEventToQueue(GetMainEventQueue(), pEvent, kEventPriorityStandard) == noErr ? 1 : 0;
    ReleaseEvent(pEvent);
}

template <typename>
int ProcessWaitAndProcessEvents(unsigned int timeout) {
    return LProcessEventsHandlerNeverStop().ProcessWaitAndProcessEvents(timeout);
}
template PORT_EXPORTED int ProcessWaitAndProcessEvents<>(unsigned int);

int ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef signal) {
    return LProcessEventsHandlerNeverStop().ProcessWaitSignalForeverAndProcessEvents(signal);
}

int ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef signal, unsigned int timeout) {
    return LProcessEventsHandlerNeverStop().ProcessWaitSignalAndProcessEvents(signal, timeout);
}

int ProcessWaitSignalObjectGroupAndProcessEvents(LSignalObjectGroup& group, unsigned int timeout) {
    return LProcessEventsHandlerNeverStop().ProcessWaitSignalObjectGroupAndProcessEvents(group, timeout);
}

bool LProcessClearEventQueue() {
    bool bDispatched = false;
    const auto process = [&bDispatched](ItemCount dwAttempts) {
        for (; dwAttempts != 0; --dwAttempts)
            bDispatched |= ProcessEvent(kEventDurationNoWait).bDispatched;
    };
    process(std::min(GetNumEventsInQueue(GetMainEventQueue()) + 1, kFirstAttempts));
    process(GetNumEventsInQueue(GetMainEventQueue()) + 1);
    return bDispatched;
}

// What was posted before the marker comes out before it. The reference is kept until the marker has come out,
// perhaps in another wait.
bool LProcessClearCurrentEvents() {
    EventRef pMarker = nullptr;
    CreateEvent(nullptr, kMarkerClass, kMarkerKind, 0, kEventAttributeUserEvent, &pMarker);
    PostEventToQueue(GetMainEventQueue(), pMarker, kEventPriorityStandard);
    bool bDispatched = false;
    Slice slice;
    do {
        slice = ProcessEvent(kEventDurationNoWait);
        bDispatched |= slice.bDispatched;
    } while (slice.bReceived && !IsTaken(pMarker));
    ReleaseEvent(pMarker);
    return bDispatched;
}
