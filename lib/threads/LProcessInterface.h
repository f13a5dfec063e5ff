// What every operation that can last takes as its first argument: through it the operation asks whether it is
// to stop, waits so that a stop cuts the wait short, and reports errors, status lines and progress.
//
// Thread-safety: an interface is used by the thread that runs the operation.
//
// Results of cancellable operations and of the signal waits: the constants below. Time-outs are milliseconds,
// LNoTimeLimit waits without end. Reporting never fails.
#pragma once

#include "threads/LSignalObject.h"

#pragma GCC visibility push(default)

// Results of cancellable operations.
constexpr int LProcessFinished = 0;
constexpr int LProcessStopped = 1;
constexpr int LProcessFailed = 2;

// Results of the signal waits.
constexpr int LProcessWaitSignaled = 0;
constexpr int LProcessWaitStopped = 1;
constexpr int LProcessWaitFailed = 2; // the time has passed, or the wait failed

// Size in bytes of a formatted error or status text, terminator included; longer text is cut.
constexpr unsigned long LProcessTextSize = 8192;

class LProcessInterface {
public:
    // True when the work is to end now. Never blocks.
    virtual bool IsToStop() = 0;
    // Waits for the whole time, or until the work is to stop: true then.
    virtual bool ProcessWait(unsigned int timeout) = 0;
    // Waits for the signal, for any member of the group, or until the work is to stop.
    virtual int ProcessWaitSignal(LSignalObjectRef signal, unsigned int timeout) = 0;
    virtual int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeout) = 0;

    virtual void SetError(const char*) {}
    // Line 0 is the main line, 1 the detail line; nested work reports on deeper lines.
    virtual void SetStatus(const char*, int) {}
    // From 0.0 to 1.0.
    virtual void SetProgress(double) {}
    // Progress of unknown extent begins and ends.
    virtual void SetProgressIndeterminateOn() {}
    virtual void SetProgressIndeterminateOff() {}

    // Formatted as by the platform's printf.
    void SetErrorF(const char* szFormat, ...) __attribute__((format(printf, 2, 3)));
    void SetStatusF(int nLine, const char* szFormat, ...) __attribute__((format(printf, 3, 4)));

protected:
    // Nobody deletes through the interface.
    ~LProcessInterface() = default;
};

// Never stops, really sleeps, drops the reports: for calls that need no cancellation.
class LProcessInterfaceVoid : public LProcessInterface {
public:
    virtual ~LProcessInterfaceVoid() = default;

    bool IsToStop() override { return false; }
    bool ProcessWait(unsigned int timeout) override;
    // A wait that a POSIX signal interrupts counts as signalled.
    int ProcessWaitSignal(LSignalObjectRef signal, unsigned int timeout) override;
    int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeout) override;
};

// Forwards everything to a parent, which must outlive it.
class LProcessInterfaceNested : public LProcessInterface {
public:
    explicit LProcessInterfaceNested(LProcessInterface& parent) : pParent(&parent) {}
    virtual ~LProcessInterfaceNested() = default;

    bool IsToStop() override { return pParent->IsToStop(); }
    bool ProcessWait(unsigned int timeout) override { return pParent->ProcessWait(timeout); }
    int ProcessWaitSignal(LSignalObjectRef signal, unsigned int timeout) override {
        return pParent->ProcessWaitSignal(signal, timeout);
    }
    int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeout) override {
        return pParent->ProcessWaitSignalObjectGroup(group, timeout);
    }
    void SetError(const char* szText) override { pParent->SetError(szText); }
    void SetStatus(const char* szText, int nLine) override { pParent->SetStatus(szText, nLine); }
    void SetProgress(double dFraction) override { pParent->SetProgress(dFraction); }
    void SetProgressIndeterminateOn() override { pParent->SetProgressIndeterminateOn(); }
    void SetProgressIndeterminateOff() override { pParent->SetProgressIndeterminateOff(); }

protected:
    LProcessInterface* pParent;
};

// One step of a larger job: its progress fills a part of the parent's, its status lines go one line down.
// Step k of n equal steps has the offset k/n and the range 1/n.
class LProcessInterfaceSubProcess : public LProcessInterfaceNested {
public:
    LProcessInterfaceSubProcess(LProcessInterface& parent, double dProgressOffset, double dProgressRange)
        : LProcessInterfaceNested(parent), dOffset(dProgressOffset), dRange(dProgressRange) {}

    void SetStatus(const char* szText, int nLine) override { pParent->SetStatus(szText, nLine + 1); }
    void SetProgress(double dFraction) override { pParent->SetProgress(dRange * dFraction + dOffset); }
    // The parent's progress stays determinate.
    void SetProgressIndeterminateOn() override {}
    void SetProgressIndeterminateOff() override {}

private:
    double dOffset;
    double dRange;
};

#pragma GCC visibility pop
