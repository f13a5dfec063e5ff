// A thread whose reports (errors, status lines, progress) arrive on the main thread, at a receiving interface:
// typically a progress display.
//
// Thread-safety: the reports are made by the thread itself; the receiver is called on the main thread, in its
// event loop. The object is destroyed on the main thread.
//
// The thread never waits for the main thread. Status lines are coalesced: a report stores the newest text, and
// each delivery brings the text that is newest then. Errors are delivered each with its own text, progress in
// whole percent, truncated: while a report of it waits, another one of the same percent adds nothing, and when 128 wait
// the last of them tells what is newest. So a worker that is much faster than the main thread does not fill its queue
// with progress; status lines it may.
//
// Before the first report `LThreadRunOnMainThread::Init` has been called: what is reported without it is lost.
// So is what was not yet delivered when the object is destroyed; `WaitAndDeliver` leaves nothing behind.
//
// As with every thread, a subclass stops the thread in its own destructor (`_StopAndWait`), or is an `LThreadOf`.
#pragma once

#include <concepts>

#include "base/LLimits.h"
#include "threads/LLockObject.h"
#include "threads/LQueuedNotify.h"
#include "threads/LThread.h"

#pragma GCC visibility push(default)

class LThreadNotifyInterface : public LThread, public LQueuedNotifyDataHandler {
public:
    // The receiver outlives this object. Without `bDeliver` all reports are dropped.
    explicit LThreadNotifyInterface(LProcessInterface* pReceivingInterface, bool bDeliver = true);
    // Stops the thread, waits for it and drops the reports that were not yet delivered.
    ~LThreadNotifyInterface() override;

    // On the main thread: waits for the end of the thread, if it was started, dispatching events meanwhile, and
    // delivers all that it has reported.
    void WaitAndDeliver();

    void SetError(const char* szText) override;
    // Lines 0 and 1, each cut at 259 bytes; deeper lines are not delivered.
    void SetStatus(const char* szText, int nLine) override;
    void SetProgress(double dFraction) override;
    void SetProgressIndeterminateOn() override;
    void SetProgressIndeterminateOff() override;

    void EvQueuedNotifyData(unsigned int dwCode, const void* pData, unsigned long dwSize) override;

private:
    static constexpr int kStatusLines = 2;
    static constexpr unsigned int kMostUnread = 128; // more than one run through the percents

    // Reports of progress on their way to the main thread.
    struct Unread {
        unsigned int nReports = 0;
        unsigned long dwNewest = 0; // percent that the last one tells
        bool bClosed = false;       // something else was reported behind it: it cannot tell what comes later
    };

    bool _Post(unsigned int dwCode, const void* pData, unsigned long dwSize);
    void _PostIndeterminate(unsigned int dwCode);
    unsigned long _TakeProgress(unsigned long dwPercent);
    void _DeliverStatus(int nLine);

    LProcessInterface* pReceiver;
    LQueuedNotifyDataHandler* pPoster; // null: nothing is delivered
    LLockObject statusLock;            // of what follows
    Unread unread;
    char szStatus[kStatusLines][LPathBufferSize] = {};
};

//   LThreadOf copy([](LProcessInterface& process) { ... }, &display);
template <typename TWork, std::derived_from<LProcessInterface> TReceiver>
LThreadOf(TWork, TReceiver*) -> LThreadOf<TWork, LThreadNotifyInterface>;

#pragma GCC visibility pop
