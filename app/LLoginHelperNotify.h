// The helper's side of the conversation with the main application: what each message does, and the setting
// that it reads and changes.
//
// Thread-safety: called from several threads, for one connection one event at a time. Keeps nothing between
// events.
#pragma once

#include "xpc/LXPCEventNotify.h"

class LLoginHelper;

class LLoginHelperNotify final : public LXPCServerEventNotify {
public:
    // The delegate is not owned and outlives the sink.
    explicit LLoginHelperNotify(LLoginHelper* pHelper) : pDelegate(pHelper) {}

    // Drops the connection, unless it was only interrupted.
    void EvConnectionError(long connection, LXPCErrorType type) override;
    // Answers one request; one that changes the setting when that is saved, and until then its connection waits.
    // Does not return from a request to end the helper.
    void EvMessageReceived(long connection, long message, const LList<LXPCDataListable>& items) override;
    void EvReplyReceived(long, const LList<LXPCDataListable>&) override {}
    void EvMessageSent(long) override {}
    // Ends the helper.
    void EvInvalidConnectionAttempt() override;

private:
    struct Request;

    void _SendReply(long connection, long message, const char* szKey, bool bValue);
    void _SetLaunchAtLogin(long connection, long message, const Request& request);

    LLoginHelper* pDelegate;
};
