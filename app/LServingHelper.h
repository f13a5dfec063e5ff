// The helper that a question starts, by way of the service manager's socket: it serves, whether the main
// application runs or not, launches nothing, and ends when nobody asks any more.
//
// Thread-safety: as `LLoginHelper`.
#pragma once

#include "LLoginHelper.h"

class LServingHelper final : public LLoginHelper {
public:
    // Ends the process with status 69 when the service cannot be created.
    void applicationDidFinishLaunching(const NSNotification& notification) override;
};
