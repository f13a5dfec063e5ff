// The queue on which the helper changes its setting: one change after the other, and one save for all that wait, so
// that nobody who serves waits for the disk.
//
// Thread-safety: any thread.
#pragma once

#include <Foundation/Foundation.h>

#include "xpc/LXPCLateReply.h"

struct LSettingChange {
    NSRef<NSString> pMainAppPath; // launch at login is on, with this bundle; null: off
    LXPCLateReply reply;
};

// Returns at once. The reply is sent when a save that contains the change has ended; one that failed is told on
// standard error, and the setting stays as it is in memory.
void QueueSettingChange(LSettingChange change);
