// A marker file in the temporary folder that tells a run whether the previous run of the same user ended
// without its clean end: a run makes the marker and keeps it locked while it lives, its clean end deletes it.
//
// Thread-safety: none; for the main thread. Nothing blocks but the file system. Failures are silent.
#pragma once

#include <port/UniqueFd.h>
#include <sys/types.h>

#include "base/LLimits.h"
#include "debug/LDebugSignals.h"

#pragma GCC visibility push(default)

class LHangDetector {
public:
    LHangDetector() = default;
    // At exit; the clean end of the run.
    ~LHangDetector() { Destroy(); }

    // Makes the marker and takes it for this run. When another live run has it nothing happens. A marker that
    // a run left behind is told in one OutputDebugStringF line and deleted, and this run goes on without one;
    // so does a run that calls this a second time, and finds its own.
    void InitAndTest();

    // Deletes this run's marker and lets it go; nothing without one. What belongs to another run stays, and so
    // does the marker in a forked child, whose run it is not.
    void Destroy();

    bool HasMarker() const { return static_cast<bool>(fdMarker); }
    const char* GetPath() const { return szPath; }

private:
    void _MakePath();
    void _ReportStale();
    bool _IsOwn() const;

    char szPath[LPathBufferSize] = {};
    port::UniqueFd fdMarker;
    pid_t nProcess = -1; // that made the marker
};

inline namespace lfoundation {
extern LHangDetector gLHangDetector;
}

// InitAndTest and Destroy of the process's detector.
void LDebugHangDetectorInit();
void LDebugHangDetectorDestroy();

#pragma GCC visibility pop
