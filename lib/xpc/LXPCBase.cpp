#include "xpc/LXPCBase.h"

#include "xpc/internal/LXPCEventGate.h"
#include "xpc/internal/LXPCHandles.h"

template <typename Work>
auto LXPCBase::_WhileOpen(Work work) const {
    return [pAlive = pGate, work](auto... arguments) {
        if (const LXPCEventScope scope(*pAlive); scope)
            work(arguments...);
    };
}

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
    xpc_connection_send_message_with_reply(
        pConnection, pMessage.get(), dispatch_get_main_queue(),
        _WhileOpen([this](xpc_object_t pReply) { _Handle(pReply, true); }));
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
    xpc_connection_send_barrier(LXPCConnectionObject(connection), _WhileOpen([this, connection] {
                                    _LeaveTo(pNotify)->EvMessageSent(connection);
                                }));
}

void LXPCBase::SetupConnectionHandlerAndResume(LXPCConnection& connection) {
    if (connection.IsValid())
        xpc_connection_set_event_handler(LXPCConnectionObject(connection.GetHandle()),
                                         _WhileOpen([this](xpc_object_t pEvent) { _Handle(pEvent, false); }));
    connection.Resume();
}

void LXPCBase::_Handle(void* pObject, bool bReply) {
    const xpc_type_t pType = xpc_get_type(pObject);
    const long connection = LXPCHandle(xpc_dictionary_get_remote_connection(pObject));
    if (pType == XPC_TYPE_ERROR)
        return ErrorHandler(pObject, connection, _LeaveTo(pNotify));
    if (pType != XPC_TYPE_DICTIONARY)
        return;
    LList<LXPCDataListable> loItems;
    GetXPCDictionary(pObject, loKeys, loItems);
    if (loItems.IsEmpty())
        return;
    if (bReply)
        _LeaveTo(pNotify)->EvReplyReceived(connection, loItems);
    else
        _LeaveTo(pNotify)->EvMessageReceived(connection, LXPCHandle(pObject), loItems);
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
