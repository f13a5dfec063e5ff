#include "xpc/RecordingClient.h"

#include <algorithm>
#include <port/bsd.h>
#include <port/seams.h>

#include "xpc/ChildProcess.h"

std::vector<std::string> RecordingSink::Lines() {
    const std::lock_guard guard(mutex);
    return lines;
}

std::size_t RecordingSink::Count(const std::string& start) {
    const std::lock_guard guard(mutex);
    return static_cast<std::size_t>(
        std::ranges::count_if(lines, [&](const std::string& line) { return line.starts_with(start); }));
}

void RecordingSink::Note(long connection, const std::string& line, const LList<LXPCDataListable>& items) {
    const std::lock_guard guard(mutex);
    std::string& text = lines.emplace_back(line);
    for (const LXPCDataListable* item = items.GetFirst(); item != nullptr; item = item->pNext)
        text += std::string(" ") + item->szName + "=" +
                (item->eType == LXPCDataTypeString ? reinterpret_cast<const char*>(item->nValue)
                                                   : std::to_string(item->nValue));
    lastConnection = connection;
}

void RecordingSink::EvConnectionError(long connection, LXPCErrorType type) {
    Note(connection, "error " + std::to_string(type));
}
void RecordingSink::EvMessageReceived(long connection, long, const LList<LXPCDataListable>& items) {
    Note(connection, "message", items);
}
void RecordingSink::EvReplyReceived(long connection, const LList<LXPCDataListable>& items) {
    Note(connection, "reply", items);
    if (onReply)
        onReply();
}

LXPCData Item(const char* name, LXPCDataType type, long value) {
    LXPCData item;
    strlcpy(item.szName, name, sizeof item.szName);
    item.eType = type;
    item.nValue = value;
    return item;
}

LXPCData TextItem(const char* name, const char* text) {
    return Item(name, LXPCDataTypeString, reinterpret_cast<long>(text));
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
