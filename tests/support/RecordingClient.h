// A sink that notes what happens to a client.
//
// Thread-safety: events are noted from any thread; the rest belongs to the test's main thread.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/MainQueue.h"
#include "xpc/LXPCClient.h"

class RecordingSink final : public LXPCServerEventNotify {
public:
    // One line an event: "error 2", "reply TEXT=x SENT=0", "message PUSHED=1", "sent"; those that
    // start so.
    std::vector<std::string> Lines(const std::string& start = "");
    std::size_t Count(const std::string& start) { return Lines(start).size(); }
    // The connection handle of the newest event.
    std::atomic<long> lastConnection = -1;
    // Run inside each reply and each message.
    std::function<void()> onReply;
    std::function<void()> onMessage;

    void EvConnectionError(long connection, LXPCErrorType type) override {
        Note(connection, "error " + std::to_string(type));
    }
    void EvMessageReceived(long connection, long, const LList<LXPCDataListable>& items) override {
        Note(connection, "message", items);
        if (onMessage)
            onMessage();
    }
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
