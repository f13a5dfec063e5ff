#include "xpc/LXPCBase.h"

#include <xpc/xpc.h>

#include "xpc/internal/LXPCEndpointState.h"

LXPCBase::LXPCBase(port::Reference<LXPCEndpointState> pShared) : pState(std::move(pShared)) {}

// Again, behind the destructors of derived classes: a second time it costs a look.
LXPCBase::~LXPCBase() {
    _CloseEvents();
}

bool LXPCBase::EndEvents() {
    pState->gate.Close();
    return !pState->gate.IsBusy();
}

// Closed first: the number of events that run only falls from then on, and the wait ends.
void LXPCBase::_CloseEvents() {
    pState->gate.Close();
    pState->gate.WaitForOthers();
}

// Without a lock: events, which read the list on other threads, come after `resume`, and keys before.
void LXPCBase::AddKey(const char* szKey, LXPCDataType eType) {
    pState->loKeys.AddHead(new LXPCDictionaryKeyListable(szKey, eType));
}

void LXPCBase::AddKey(const LXPCDictionaryKeyListable& key) {
    AddKey(key.szName, key.eType);
}

void LXPCBase::SendMessage(long connection, const LList<LXPCDataListable>& loItems, bool bWantReply) {
    LXPCSendMessage(pState, connection, loItems, bWantReply);
}

void LXPCBase::SendReply(long connection, long message, const LList<LXPCDataListable>& loItems) {
    LXPCSendReply(pState, connection, message, loItems);
}

void LXPCBase::SetupConnectionHandlerAndResume(LXPCConnection& connection) {
    LXPCSetHandler(pState, connection);
    connection.Resume();
}

void ErrorHandler(void* pError, long connection, LXPCEventNotify* pNotify) {
    LXPCErrorType eType = LXPCErrorTypeOther;
    if (pError == XPC_ERROR_CONNECTION_INVALID)
        eType = LXPCErrorTypeConnectionInvalid;
    else if (pError == XPC_ERROR_CONNECTION_INTERRUPTED)
        eType = LXPCErrorTypeConnectionInterrupted;
    else if (pError == XPC_ERROR_TERMINATION_IMMINENT)
        eType = LXPCErrorTypeTerminationImminent;
    pNotify->EvConnectionError(connection, eType);
}
