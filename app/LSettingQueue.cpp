#include "LSettingQueue.h"

#include <cerrno>
#include <cstring>
#include <dispatch/dispatch.h>
#include <mutex>
#include <utility>
#include <vector>

#include "HelperReport.h"
#include "LoginHelperContract.h"

namespace {

// What waits for the next save; never destroyed, for the queue works while the process ends.
struct Waiting {
    std::mutex mutex;
    std::vector<LSettingChange> changes;
    dispatch_queue_t queue = dispatch_queue_create("settings", nullptr);
};

Waiting& GetWaiting() {
    static Waiting& waiting = *new Waiting;
    return waiting;
}

void Apply(const LSettingChange& change, NSUserDefaults& defaults) {
    if (change.pMainAppPath) {
        defaults.setBool(true, LSettingLaunchAtLogin);
        defaults.setObject(*change.pMainAppPath, LSettingMainAppPath);
    } else {
        defaults.removeObjectForKey(LSettingLaunchAtLogin);
        defaults.removeObjectForKey(LSettingMainAppPath);
    }
}

void Answer(LSettingChange& change) {
    LList<LXPCDataListable> loReply;
    loReply.AddHead(CreateXPCData({LReplyLaunchAtLogin, LXPCDataTypeBool}, change.pMainAppPath ? 1 : 0, 0));
    change.reply.Send(loReply);
}

// On a worker, on the setting's own queue: one save at a time. The mutex is free while the disk works, so that
// events go on; a change that comes meanwhile finds the list empty, and asks for the next save.
void SaveWaiting() {
    std::vector<LSettingChange> changes;
    {
        const std::lock_guard lock(GetWaiting().mutex);
        changes.swap(GetWaiting().changes);
    }
    NSUserDefaults& defaults = *NSUserDefaults::standardUserDefaults();
    for (const LSettingChange& change : changes)
        Apply(change, defaults);
    if (!defaults.synchronize())
        HelperReport("the settings could not be saved: %s", strerror(errno));
    // Only now, when the save has ended. Sending lets the connection go on.
    for (LSettingChange& change : changes)
        Answer(change);
}

} // namespace

// On the worker of a peer's event, several at a time. The save that is asked for waits for the mutex, so it
// finds the change though that is added last.
void QueueSettingChange(LSettingChange change) {
    Waiting& waiting = GetWaiting();
    const std::lock_guard lock(waiting.mutex);
    // All that can fail for want of memory comes first: a change that waits has a save that comes.
    waiting.changes.reserve(waiting.changes.size() + 1);
    if (waiting.changes.empty())
        dispatch_async(waiting.queue, SaveWaiting);
    waiting.changes.push_back(std::move(change));
}
