#include "support/RecordingClient.h"

#include <port/bsd.h>

std::vector<std::string> RecordingSink::Lines(const std::string& start) {
    const std::lock_guard guard(mutex);
    std::vector<std::string> chosen = lines;
    std::erase_if(chosen, [&](const std::string& line) { return !line.starts_with(start); });
    return chosen;
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
