#include "threads/LThreadRunOnMainThread.h"

#include <memory>

namespace {

constexpr OSType kEventClass = 0x4C4E6F74;              // 'LNot'
constexpr UInt32 kEventKind = 0x4C4E646B;               // 'LNdk'
constexpr EventParamName kTargetParameter = 0x4C4E7468; // 'LNth'
constexpr EventParamName kDataParameter = 0x4C4E6461;   // 'LNda'
constexpr ByteCount kPointerSize = sizeof(void*);

// Null when the event has no such parameter.
template <typename T>
T* GetPointer(EventRef pEvent, EventParamName dwName) {
    T* pObject = nullptr;
    GetEventParameter(pEvent, dwName, typeVoidPtr, nullptr, kPointerSize, nullptr, &pObject);
    return pObject;
}

template <typename T>
void SetPointer(EventRef pEvent, EventParamName dwName, T* pObject) {
    SetEventParameter(pEvent, dwName, typeVoidPtr, kPointerSize, &pObject);
}

// The event gives its data up: it cannot be deleted twice, whatever happens to the event.
std::unique_ptr<LThreadRunOnMainThreadData> TakeData(EventRef pEvent) {
    auto* pData = GetPointer<LThreadRunOnMainThreadData>(pEvent, kDataParameter);
    SetPointer<LThreadRunOnMainThreadData>(pEvent, kDataParameter, nullptr);
    return std::unique_ptr<LThreadRunOnMainThreadData>(pData);
}

} // namespace

port::Atomic<EventQueueRef> LThreadRunOnMainThread::pMainQueue{nullptr};
EventHandlerUPP LThreadRunOnMainThread::pHandlerProcedure = nullptr;
EventHandlerRef LThreadRunOnMainThread::pHandler = nullptr;

void LThreadRunOnMainThread::Init() {
    if (pHandler != nullptr)
        return;
    const EventTypeSpec type{kEventClass, kEventKind};
    pMainQueue = GetMainEventQueue();
    pHandlerProcedure = NewEventHandlerUPP(EventHandler);
    InstallEventHandler(GetApplicationEventTarget(), pHandlerProcedure, 1, &type, nullptr, &pHandler);
}

void LThreadRunOnMainThread::Destroy() {
    if (pHandler == nullptr)
        return;
    pMainQueue = nullptr;
    RemoveEventHandler(pHandler);
    DisposeEventHandlerUPP(pHandlerProcedure);
    pHandler = nullptr;
    pHandlerProcedure = nullptr;
}

bool LThreadRunOnMainThread::RunOnMainThread(LThreadRunOnMainThreadData* pData) {
    EventRef pEvent = nullptr;
    CreateEvent(nullptr, kEventClass, kEventKind, 0, kEventAttributeNone, &pEvent);
    SetPointer(pEvent, kTargetParameter, this);
    SetPointer(pEvent, kDataParameter, pData);
    // Once it is posted the event, its data and even this object may be gone.
    const bool bPosted = _Post(pEvent);
    if (!bPosted)
        delete pData;
    ReleaseEvent(pEvent);
    return bPosted;
}

// Under the lock from the test to the queue, so that nothing is queued after a close has looked through it.
bool LThreadRunOnMainThread::_Post(EventRef pEvent) {
    const LLockScope scope(lock);
    if (bClosing || !bEnabled)
        return false;
    // Before it is queued: the main thread may handle it, and count it off, before this call is back. Who
    // closes the target needs the lock, and so waits until nothing of it is used here.
    IncRefCount();
    if (PostEventToQueue(pMainQueue, pEvent, kEventPriorityStandard) == noErr)
        return true;
    DecRefCount();
    return false;
}

void LThreadRunOnMainThread::ThreadRunOnMainThreadDestroy() {
    {
        const LLockScope scope(lock);
        if (!bEnabled)
            return;
        bClosing = true;
    }
    // Without the lock: the data's destructors may do anything, posting included. Of a target that has none in the
    // queue nothing is looked for: how much others have there is not its concern.
    if (GetRefCount() != 0)
        FlushSpecificEventsFromQueue(GetMainEventQueue(), FlushEventFromQueueCallBack, this);
    const LLockScope scope(lock);
    bEnabled = false;
}

// What runs may close the target and delete it, so the count is looked up before.
OSStatus LThreadRunOnMainThread::EventHandler(OpaqueEventHandlerCallRef*, OpaqueEventRef* pEvent, void*) {
    std::unique_ptr<LThreadRunOnMainThreadData> data = TakeData(pEvent);
    if (data == nullptr)
        return noErr;
    const auto* pTarget = GetPointer<LThreadRunOnMainThread>(pEvent, kTargetParameter);
    Count* const pCount = pTarget != nullptr ? pTarget->pCount : nullptr;
    data->MainThreadFunction();
    data.reset();
    if (pCount != nullptr)
        pCount->Release();
    return noErr;
}

Boolean LThreadRunOnMainThread::FlushEventFromQueueCallBack(OpaqueEventRef* pEvent, void* pTarget) {
    return static_cast<LThreadRunOnMainThread*>(pTarget)->FlushEventFromQueue(pEvent) ? 1 : 0;
}

bool LThreadRunOnMainThread::FlushEventFromQueue(OpaqueEventRef* pEvent) {
    if (GetPointer<LThreadRunOnMainThread>(pEvent, kTargetParameter) != this)
        return false;
    if (TakeData(pEvent) != nullptr)
        DecRefCount();
    return true;
}

void LThreadRunOnMainThread::Count::Release() {
    if (nReferences.fetch_sub(1, port::Order::AcquireRelease) == 1)
        delete this;
}
