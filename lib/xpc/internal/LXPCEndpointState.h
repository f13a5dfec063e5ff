// What the events of an endpoint use: its sink, its keys and its gate. Each handler and barrier that the runtime has
// shares it, so that it lives until the last of them has left, whatever has become of the endpoint. Internal to the
// XPC layer.
//
// Thread-safety: the sending functions and the events any thread; the keys do not change once there are events.
#pragma once

#include "base/internal/LCounted.h"
#include "xpc/LXPCConnection.h"
#include "xpc/LXPCData.h"
#include "xpc/LXPCEventNotify.h"
#include "xpc/internal/LXPCEventGate.h"

struct LXPCEndpointState : LCounted {
    explicit LXPCEndpointState(LXPCEventNotify* pSink) : pNotify(pSink) {}

    // An event or a reply of the runtime, inside an event scope.
    void Handle(void* pObject, bool bReply);

    LXPCEventNotify* const pNotify;
    LList<LXPCDictionaryKeyListable> loKeys;
    LXPCEventGate gate;
};

using LXPCEndpointStatePtr = port::Reference<LXPCEndpointState>;

// What the operations of the endpoint of that name do.
void LXPCSendMessage(const LXPCEndpointStatePtr& pState, long connection,
                     const LList<LXPCDataListable>& loItems, bool bWantReply);
void LXPCSendReply(const LXPCEndpointStatePtr& pState, long connection, long message,
                   const LList<LXPCDataListable>& loItems);
void LXPCSetHandler(const LXPCEndpointStatePtr& pState, const LXPCConnection& connection);
