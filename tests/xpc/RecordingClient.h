// A sink that notes what happens to a client, and the wait that serves the main queue meanwhile.
//
// Thread-safety: events are noted from any thread; the rest belongs to the test's main thread.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "xpc/LXPCClient.h"

class RecordingSink final : public LXPCServerEventNotify {
public:
    // One line an event: "error 2", "reply TEXT=x SENT=0", "message PUSHED=1", "sent".
    std::vector<std::string> Lines();
    std::size_t Count(const std::string& start);
    // The connection handle of the newest event.
    std::atomic<long> lastConnection = -1;
    // Runs inside each reply.
    std::function<void()> onReply;

    void EvConnectionError(long connection, LXPCErrorType type) override;
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override;
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long connection) override { Note(connection, "sent"); }
    void EvInvalidConnectionAttempt() override { Note(0, "refused"); }

private:
    void Note(long connection, const std::string& line, const LList<LXPCDataListable>& items = {});

    std::mutex mutex;
    std::vector<std::string> lines;
};

// An item; its text lives at least as long as the call that sends it.
LXPCData Item(const char* name, LXPCDataType type, long value);
LXPCData TextItem(const char* name, const char* text);
// Serves the main queue until the condition holds; false when it does not in time.
bool WaitFor(const std::function<bool()>& condition, int milliseconds = 10000);
// Serves the main queue for that long.
void Serve(int milliseconds);
