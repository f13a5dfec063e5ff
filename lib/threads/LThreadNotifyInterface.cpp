#include "threads/LThreadNotifyInterface.h"

#include <cmath>
#include <cstring>

#include "threads/LProcessEventsHandler.h"

namespace {

enum NotifyCode : unsigned int {
    CodeError = 0,
    CodeStatus = 1, // and one more for each further line
    CodeStatusDetail = 2,
    CodeProgress = 3,
    CodeIndeterminateOn = 4,
    CodeIndeterminateOff = 5,
};

constexpr double kPercent = 100;
constexpr double kLargestFraction = 1e16; // its percents still fit a number

} // namespace

LThreadNotifyInterface::LThreadNotifyInterface(LProcessInterface* pReceivingInterface, bool bDeliver)
    : pReceiver(pReceivingInterface), pPoster(bDeliver && pReceivingInterface != nullptr ? this : nullptr) {}

// First the reports end, then those that are queued go, then what they use.
LThreadNotifyInterface::~LThreadNotifyInterface() {
    _StopAndWait();
    QueuedNotifyDataHandlerDestroy();
}

// The last reports were posted before the signal was set: they are in front of the mark.
void LThreadNotifyInterface::WaitAndDeliver() {
    if (_IsCreated())
        ProcessWaitSignalObjectAndProcessEvents(GetFinishedSignal());
    LProcessClearCurrentEvents();
}

bool LThreadNotifyInterface::_Post(unsigned int dwCode, const void* pData, unsigned long dwSize) {
    return pPoster != nullptr && pPoster->PostNotifyFromSender(dwCode, pData, dwSize);
}

void LThreadNotifyInterface::SetError(const char* szText) {
    _Post(CodeError, szText, std::strlen(szText) + 1);
}

// On the reporting thread. The text is not in the event: a delivery brings what is newest then, however many
// are queued.
void LThreadNotifyInterface::SetStatus(const char* szText, int nLine) {
    if (nLine < 0 || nLine >= kStatusLines)
        return;
    {
        const LLockScope scope(statusLock);
        strlcpy(szStatus[nLine], szText, LPathBufferSize);
    }
    _Post(CodeStatus + static_cast<unsigned int>(nLine), nullptr, 0);
}

// The size carries whole percents, negative ones wrapped. A report is counted before it is queued, since the main thread
// may be faster than the rest of this call.
void LThreadNotifyInterface::SetProgress(double dFraction) {
    if (!(std::fabs(dFraction) < kLargestFraction))
        return;
    const auto dwPercent = static_cast<unsigned long>(static_cast<long long>(dFraction * kPercent));
    {
        const LLockScope scope(statusLock);
        const bool bJoins = unread.nReports != 0 && !unread.bClosed &&
                            (dwPercent == unread.dwNewest || unread.nReports >= kMostUnread);
        unread.dwNewest = dwPercent;
        if (bJoins)
            return;
        ++unread.nReports;
        unread.bClosed = false;
    }
    if (!_Post(CodeProgress, nullptr, dwPercent))
        _TakeProgress(dwPercent);
}

// A report leaves those that are unread. Returns what it tells.
unsigned long LThreadNotifyInterface::_TakeProgress(unsigned long dwPercent) {
    const LLockScope scope(statusLock);
    if (unread.nReports == 0) // it was not made by SetProgress
        return dwPercent;
    return --unread.nReports == 0 ? unread.dwNewest : dwPercent;
}

void LThreadNotifyInterface::SetProgressIndeterminateOn() {
    _PostIndeterminate(CodeIndeterminateOn);
}

void LThreadNotifyInterface::SetProgressIndeterminateOff() {
    _PostIndeterminate(CodeIndeterminateOff);
}

void LThreadNotifyInterface::_PostIndeterminate(unsigned int dwCode) {
    {
        const LLockScope scope(statusLock);
        unread.bClosed = true;
    }
    _Post(dwCode, nullptr, 0);
}

// On the main thread. The receiver is there: the notifications are closed before it may go.
void LThreadNotifyInterface::EvQueuedNotifyData(unsigned int dwCode, const void* pData,
                                                unsigned long dwSize) {
    switch (dwCode) {
    case CodeError:
        if (pData != nullptr)
            pReceiver->SetError(static_cast<const char*>(pData));
        break;
    case CodeStatus:
    case CodeStatusDetail:
        _DeliverStatus(static_cast<int>(dwCode - CodeStatus));
        break;
    case CodeProgress:
        pReceiver->SetProgress(static_cast<double>(static_cast<long long>(_TakeProgress(dwSize))) * 0.01);
        break;
    case CodeIndeterminateOn:
        pReceiver->SetProgressIndeterminateOn();
        break;
    case CodeIndeterminateOff:
        pReceiver->SetProgressIndeterminateOff();
        break;
    default:
        break;
    }
}

// The receiver runs without the lock.
void LThreadNotifyInterface::_DeliverStatus(int nLine) {
    char szText[LPathBufferSize];
    {
        const LLockScope scope(statusLock);
        strlcpy(szText, szStatus[nLine], sizeof szText);
    }
    pReceiver->SetStatus(szText, nLine);
}
