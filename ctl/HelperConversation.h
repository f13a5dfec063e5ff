// One question after another to the login helper, each with a time-out.
//
// Thread-safety: none; the main thread, which serves the main dispatch queue while it waits.
#pragma once

#include <atomic>
#include <initializer_list>

#include "xpc/LXPCClient.h"

enum class HelperAnswer {
    Replied,
    Silent,      // no reply in time
    Unreachable, // nobody serves the name
    Ended,       // the helper went away before it replied
    Unasked      // this process can have no connection, whoever serves; errno tells why
};

// Whether that value of errno says that the system has no descriptor or no memory left.
bool IsShortage(int nError);

class HelperConversation final : private LXPCEventNotify {
public:
    // Connects at the first question. The name is borrowed.
    HelperConversation(const char* szServiceName, unsigned dwTimeoutMilliseconds);

    // Sends the items and waits for the reply. `bValue` is what the reply holds, false without one.
    HelperAnswer Ask(std::initializer_list<LXPCData> items, bool& bValue);

    // Items of a question; the text is borrowed until the question has been asked.
    static LXPCData Flag(const char* szName, bool bValue);
    static LXPCData Text(const char* szName, const char* szText);

private:
    void EvConnectionError(long connection, LXPCErrorType type) override;
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvReplyReceived(long connection, const LList<LXPCDataListable>& items) override;
    void EvMessageSent(long) override {}

    const char* szService;
    unsigned dwTimeout;
    bool bConnected = false;
    bool bReplyValue = false;
    // Errors arrive on another thread; the first event of a question decides.
    std::atomic<HelperAnswer> answer = HelperAnswer::Silent;
    LXPCClient client;
};
