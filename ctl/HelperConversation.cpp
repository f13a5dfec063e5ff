#include "HelperConversation.h"

#include <cerrno>
#include <chrono>
#include <port/bsd.h>
#include <port/main_queue.h>
#include <port/runtime_folder.h>

#include "LoginHelperContract.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long kConnectionNumber = 1;

int MillisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return static_cast<int>(left.count());
}

// Why nobody answers: a connection for which this process has no descriptor is as invalid as one to nobody.
HelperAnswer WhyUnreachable(const char* szService) {
    const bool bServed = port_service_process(szService) != -1;
    if (bServed)
        errno = EAGAIN; // a connection can be made, but could not be kept
    return bServed || IsShortage(errno) ? HelperAnswer::Unasked : HelperAnswer::Unreachable;
}

} // namespace

bool IsShortage(int nError) {
    return nError == EMFILE || nError == ENFILE || nError == ENOMEM || nError == ENOBUFS;
}

HelperConversation::HelperConversation(const char* szServiceName, unsigned dwTimeoutMilliseconds)
    : szService(szServiceName), dwTimeout(dwTimeoutMilliseconds), client(this) {
    for (const char* szReply :
         {LReplyTestConnection, LReplyNewConnection, LReplyLaunchAtLogin, LReplyQueryLaunchAtLogin})
        client.AddKey(szReply, LXPCDataTypeBool);
}

HelperAnswer HelperConversation::Ask(std::initializer_list<LXPCData> items, bool& bValue) {
    bValue = false;
    bReplyValue = false;
    answer = HelperAnswer::Silent;
    if (!bConnected)
        bConnected = client.Connect(szService, kConnectionNumber, true);
    if (!bConnected)
        return WhyUnreachable(szService);
    client.SendMessage(szService, kConnectionNumber, items.begin(), items.size(), true);
    const auto deadline = Clock::now() + std::chrono::milliseconds(dwTimeout);
    int nLeft;
    while (answer == HelperAnswer::Silent && (nLeft = MillisecondsUntil(deadline)) > 0)
        port_main_queue_drain(nLeft);
    bValue = bReplyValue;
    return answer == HelperAnswer::Unreachable ? WhyUnreachable(szService) : answer.load();
}

LXPCData HelperConversation::Flag(const char* szName, bool bValue) {
    LXPCData item;
    strlcpy(item.szName, szName, sizeof(item.szName));
    item.eType = LXPCDataTypeBool;
    item.nValue = bValue ? 1 : 0;
    return item;
}

LXPCData HelperConversation::Text(const char* szName, const char* szText) {
    LXPCData item;
    strlcpy(item.szName, szName, sizeof(item.szName));
    item.eType = LXPCDataTypeString;
    item.nValue = reinterpret_cast<long>(szText);
    return item;
}

void HelperConversation::EvConnectionError(long, LXPCErrorType type) {
    HelperAnswer waiting = HelperAnswer::Silent;
    answer.compare_exchange_strong(waiting, type == LXPCErrorTypeConnectionInterrupted
                                                ? HelperAnswer::Ended
                                                : HelperAnswer::Unreachable);
}

void HelperConversation::EvReplyReceived(long, const LList<LXPCDataListable>& items) {
    bReplyValue = items.GetFirst()->nValue != 0;
    answer = HelperAnswer::Replied;
}
