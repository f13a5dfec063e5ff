#include "xpc/LXPCBase.h"

#include "xpc/internal/LXPCEventGate.h"
#include "xpc/internal/LXPCHandles.h"

LXPCBase::LXPCBase(LXPCEventNotify* pSink) : pNotify(pSink), pGate(std::make_shared<LXPCEventGate>()) {}

LXPCBase::~LXPCBase() {
    _CloseEvents();
}

void LXPCBase::_Settle() const {
    pGate->Settle();
}

void LXPCBase::_CloseEvents() {
    pGate->Close(LXPCCloseWaitMilliseconds);
}

void LXPCBase::AddKey(const char* szKey, LXPCDataType eType) {
    loKeys.AddHead(new LXPCDictionaryKeyListable(szKey, eType));
}

void LXPCBase::AddKey(const LXPCDictionaryKeyListable& key) {
    AddKey(key.szName, key.eType);
}

void LXPCBase::SendMessage(long connection, const LList<LXPCDataListable>& loItems, bool bWantReply) {
    if (!LXPCIsHandle(connection))
        return;
    const LXPCObjectPtr pMessage(xpc_dictionary_create(nullptr, nullptr, 0));
    SetXPCDictionary(pMessage.get(), loItems);
    xpc_connection_t pConnection = LXPCConnectionObject(connection);
    if (!bWantReply) {
        xpc_connection_send_message(pConnection, pMessage.get());
        _SendBarrier(connection);
        return;
    }
    xpc_connection_send_message_with_reply(pConnection, pMessage.get(), dispatch_get_main_queue(),
                                           [this, pAlive = pGate](xpc_object_t pReply) {
                                               if (const LXPCEventScope scope(*pAlive); scope)
                                                   _HandleReply(pReply);
                                           });
}

void LXPCBase::SendReply(long connection, long message, const LList<LXPCDataListable>& loItems) {
    if (!LXPCIsHandle(connection) || !LXPCIsHandle(message))
        return;
    const LXPCObjectPtr pReply(xpc_dictionary_create_reply(LXPCObject(message)));
    if (pReply == nullptr)
        return;
    SetXPCDictionary(pReply.get(), loItems);
    xpc_connection_send_message(LXPCConnectionObject(connection), pReply.get());
    _SendBarrier(connection);
}

void LXPCBase::_SendBarrier(long connection) {
    xpc_connection_send_barrier(LXPCConnectionObject(connection), [this, pAlive = pGate, connection] {
        if (const LXPCEventScope scope(*pAlive); scope)
            _LeaveTo(pNotify)->EvMessageSent(connection);
    });
}

void LXPCBase::SetupConnectionHandlerAndResume(LXPCConnection& connection) {
    if (connection.IsValid())
        xpc_connection_set_event_handler(LXPCConnectionObject(connection.GetHandle()),
                                         [this, pAlive = pGate](xpc_object_t pEvent) {
                                             if (const LXPCEventScope scope(*pAlive); scope)
                                                 _HandleEvent(pEvent);
                                         });
    connection.Resume();
}

void LXPCBase::_HandleEvent(void* pEvent) {
    const xpc_type_t pType = xpc_get_type(pEvent);
    const long connection = LXPCHandle(xpc_dictionary_get_remote_connection(pEvent));
    if (pType == XPC_TYPE_DICTIONARY) {
        LList<LXPCDataListable> loItems;
        GetXPCDictionary(pEvent, loKeys, loItems);
        if (!loItems.IsEmpty())
            _LeaveTo(pNotify)->EvMessageReceived(connection, LXPCHandle(pEvent), loItems);
    } else if (pType == XPC_TYPE_ERROR) {
        ErrorHandler(pEvent, connection, _LeaveTo(pNotify));
    }
}

void LXPCBase::_HandleReply(void* pReply) {
    const xpc_type_t pType = xpc_get_type(pReply);
    const long connection = LXPCHandle(xpc_dictionary_get_remote_connection(pReply));
    if (pType == XPC_TYPE_DICTIONARY) {
        LList<LXPCDataListable> loItems;
        GetXPCDictionary(pReply, loKeys, loItems);
        if (!loItems.IsEmpty())
            _LeaveTo(pNotify)->EvReplyReceived(connection, loItems);
    } else if (pType == XPC_TYPE_ERROR) {
        ErrorHandler(pReply, connection, _LeaveTo(pNotify));
    }
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
