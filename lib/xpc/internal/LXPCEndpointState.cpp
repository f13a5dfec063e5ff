#include "xpc/internal/LXPCEndpointState.h"

#include "xpc/LXPCBase.h"
#include "xpc/internal/LXPCHandles.h"

namespace {

// What the runtime may call for as long as it likes: it does the work only until the gate is closed.
template <typename Work>
auto WhileOpen(const LXPCEndpointStatePtr& pState, Work work) {
    return [pKept = pState, work](auto... arguments) {
        if (const LXPCEventScope scope(pKept->gate); scope)
            work(*pKept, arguments...);
    };
}

void SendBarrier(const LXPCEndpointStatePtr& pState, long connection) {
    xpc_connection_send_barrier(LXPCConnectionObject(connection),
                                WhileOpen(pState, [connection](LXPCEndpointState& state) {
                                    state.pNotify->EvMessageSent(connection);
                                }));
}

} // namespace

// On the connection's own queue; a reply on the main queue. No lock is held, so the sink may do anything, short
// of waiting for what waits for it.
void LXPCEndpointState::Handle(void* pObject, bool bReply) {
    const xpc_type_t pType = xpc_get_type(pObject);
    const long connection = LXPCHandle(xpc_dictionary_get_remote_connection(pObject));
    if (pType == XPC_TYPE_ERROR)
        return ErrorHandler(pObject, connection, pNotify);
    if (pType != XPC_TYPE_DICTIONARY)
        return;
    LList<LXPCDataListable> loItems;
    GetXPCDictionary(pObject, loKeys, loItems);
    if (loItems.IsEmpty())
        return;
    if (bReply)
        pNotify->EvReplyReceived(connection, loItems);
    else
        pNotify->EvMessageReceived(connection, LXPCHandle(pObject), loItems);
}

void LXPCSendMessage(const LXPCEndpointStatePtr& pState, long connection,
                     const LList<LXPCDataListable>& loItems, bool bWantReply) {
    if (!LXPCIsHandle(connection))
        return;
    const LXPCObjectPtr pMessage(xpc_dictionary_create(nullptr, nullptr, 0));
    SetXPCDictionary(pMessage.get(), loItems);
    xpc_connection_t pConnection = LXPCConnectionObject(connection);
    if (!bWantReply) {
        // Message, then barrier, on one thread: the barrier's turn comes when the message is out, or given up.
        xpc_connection_send_message(pConnection, pMessage.get());
        SendBarrier(pState, connection);
        return;
    }
    xpc_connection_send_message_with_reply(
        pConnection, pMessage.get(), dispatch_get_main_queue(),
        WhileOpen(pState, [](LXPCEndpointState& state, xpc_object_t pReply) { state.Handle(pReply, true); }));
}

void LXPCSendReply(const LXPCEndpointStatePtr& pState, long connection, long message,
                   const LList<LXPCDataListable>& loItems) {
    if (!LXPCIsHandle(connection) || !LXPCIsHandle(message))
        return;
    const LXPCObjectPtr pReply(xpc_dictionary_create_reply(LXPCObject(message)));
    if (pReply == nullptr)
        return;
    SetXPCDictionary(pReply.get(), loItems);
    xpc_connection_send_message(LXPCConnectionObject(connection), pReply.get());
    SendBarrier(pState, connection);
}

void LXPCSetHandler(const LXPCEndpointStatePtr& pState, const LXPCConnection& connection) {
    if (connection.IsValid())
        xpc_connection_set_event_handler(LXPCConnectionObject(connection.GetHandle()),
                                         WhileOpen(pState, [](LXPCEndpointState& state, xpc_object_t pEvent) {
                                             state.Handle(pEvent, false);
                                         }));
}
