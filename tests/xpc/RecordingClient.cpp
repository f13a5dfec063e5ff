#include "xpc/RecordingClient.h"

#include <algorithm>
#include <port/bsd.h>
#include <port/seams.h>

#include "xpc/ChildProcess.h"

namespace {

std::string Describe(const LList<LXPCDataListable>& items) {
    std::string text;
    for (const LXPCDataListable* item = items.GetFirst(); item != nullptr; item = item->pNext)
        text += std::string(" ") + item->szName + "=" +
                (item->eType == LXPCDataTypeString ? reinterpret_cast<const char*>(item->nValue)
                                                   : std::to_string(item->nValue));
    return text;
}

} // namespace

std::vector<std::string> RecordingSink::Lines() {
    const std::lock_guard guard(mutex);
    return lines;
}

std::size_t RecordingSink::Count(const std::string& start) {
    const std::lock_guard guard(mutex);
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const std::string& line) { return line.rfind(start, 0) == 0; }));
}

long RecordingSink::LastConnection() {
    const std::lock_guard guard(mutex);
    return lastConnection;
}

void RecordingSink::Note(long connection, std::string line) {
    const std::lock_guard guard(mutex);
    lines.push_back(std::move(line));
    lastConnection = connection;
}

void RecordingSink::EvConnectionError(long connection, LXPCErrorType type) {
    Note(connection, "error " + std::to_string(type));
}
void RecordingSink::EvMessageReceived(long connection, long, const LList<LXPCDataListable>& items) {
    Note(connection, "message" + Describe(items));
}
void RecordingSink::EvReplyReceived(long connection, const LList<LXPCDataListable>& items) {
    Note(connection, "reply" + Describe(items));
    if (onReply)
        onReply();
}
void RecordingSink::EvMessageSent(long connection) {
    Note(connection, "sent");
}

LXPCData Item(const char* name, LXPCDataType type, long value, unsigned long size) {
    LXPCData item;
    strlcpy(item.szName, name, sizeof item.szName);
    item.eType = type;
    item.nValue = value;
    item.dwSize = size;
    return item;
}

LXPCData TextItem(const char* name, const char* text) {
    return Item(name, LXPCDataTypeString, reinterpret_cast<long>(text));
}

void DeclareHostReplies(LXPCClient& client) {
    for (const char* name : {"NAMES", "TEXT"})
        client.AddKey(name, LXPCDataTypeString);
    for (const char* name : {"MESSAGES", "SENT", "PUSHED"})
        client.AddKey(name, LXPCDataTypeInt64);
}

bool WaitFor(const std::function<bool()>& condition, int milliseconds) {
    const long deadline = NowMilliseconds() + milliseconds;
    while (!condition()) {
        if (NowMilliseconds() >= deadline)
            return false;
        port_main_queue_drain(5);
    }
    return true;
}

void Serve(int milliseconds) {
    WaitFor([] { return false; }, milliseconds);
}
