// One question to the login helper.
//
// Thread-safety: none; not on the main thread, where the answers arrive.
#pragma once

#include <LoginHelperContract.h>
#include <atomic>
#include <initializer_list>
#include <optional>
#include <port/bsd.h>
#include <threads/LSignalObject.h>
#include <xpc/LXPCClient.h>

class HelperQuestion final : private LXPCEventNotify {
public:
    HelperQuestion() : client(this) {
        client.AddKey(LReplyLaunchAtLogin, LXPCDataTypeBool);
        client.AddKey(LReplyQueryLaunchAtLogin, LXPCDataTypeBool);
    }

    // None when nobody serves, the helper ends meanwhile, or does not answer in time.
    std::optional<bool> Ask(std::initializer_list<LXPCData> items) {
        client.Connect(LHelperServiceName, 1, true);
        client.SendMessage(LHelperServiceName, 1, items.begin(), items.size(), true);
        told.WaitSignal(nPatience);
        const int nValue = nAnswer;
        return nValue == nNone ? std::nullopt : std::optional(nValue != 0);
    }

    static LXPCData Flag(const char* szName, bool bValue) {
        return Item(szName, LXPCDataTypeBool, bValue ? 1 : 0);
    }
    // The text is borrowed until the question has been asked.
    static LXPCData Text(const char* szName, const char* szText) {
        return Item(szName, LXPCDataTypeString, reinterpret_cast<long>(szText));
    }

private:
    static LXPCData Item(const char* szName, LXPCDataType eType, long nValue) {
        LXPCData item;
        strlcpy(item.szName, szName, sizeof item.szName);
        item.eType = eType;
        item.nValue = nValue;
        return item;
    }

    void EvReplyReceived(long, const LList<LXPCDataListable>& items) override {
        nAnswer = items.GetFirst()->nValue != 0 ? 1 : 0;
        told.Signal();
    }
    // Invalid: nobody serves. Interrupted: the helper has ended before it answered.
    void EvConnectionError(long, LXPCErrorType) override { told.Signal(); }
    void EvMessageReceived(long, long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}

    static constexpr unsigned nPatience = 3000; // milliseconds
    static constexpr int nNone = -1;

    LSignalObject told;
    std::atomic<int> nAnswer = nNone;
    LXPCClient client; // the last member: its events use the others
};
