// A client that notes what happens to it, and the wait that serves the main queue meanwhile.
//
// Thread-safety: events are noted from any thread; the rest belongs to the test's main thread.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "xpc/LXPCClient.h"

class RecordingSink final : public LXPCServerEventNotify {
public:
    // One line an event: "error 2", "reply NAMES=TEXT SENT=0", "message PUSHED=1", "sent".
    std::vector<std::string> Lines();
    std::size_t Count(const std::string& start);
    // The connection handle of the newest event.
    long LastConnection();
    // Runs inside each reply.
    std::function<void()> onReply;

    void EvConnectionError(long connection, LXPCErrorType type) override;
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override;
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long connection) override;
    void EvInvalidConnectionAttempt() override { Note(0, "refused"); }

private:
    void Note(long connection, std::string line);

    std::mutex mutex;
    std::vector<std::string> lines;
    long lastConnection = -1;
};

// An item whose text lives as long as the call that sends it.
LXPCData Item(const char* name, LXPCDataType type, long value, unsigned long size = 0);
LXPCData TextItem(const char* name, const char* text);
// Declares the reply keys of the host program.
void DeclareHostReplies(LXPCClient& client);
// Serves the main queue until the condition holds; false when it does not in time.
bool WaitFor(const std::function<bool()>& condition, int milliseconds = 10000);
// Serves the main queue for that long.
void Serve(int milliseconds);
