// What servers and clients share: the event sink, the declared keys, sending, and the dispatch of events.
//
// Thread-safety: the sending operations may be called from any thread. Keys are declared before the first
// connection is resumed and only read afterwards.
//
// Lifetime: the sink is called until the endpoint's destructor has returned, and never after. The destructor lets no
// further event begin, and waits, however long it takes, until those that run on other threads have returned. So who
// destroys the endpoint first and then the sink needs to know nothing of threads, and an event may use its endpoint
// from beginning to end.
//
// A sink may own its endpoint, as the last of its members, or as the first thing that its destructor destroys; in
// either case in the class that overrides the events, and no class derived from that may override one. Until the
// endpoint is gone that destructor must leave alone what the events use.
//
// An event may destroy its endpoint, and then its sink, as the last thing that it does; the destructor does not wait
// for the event that it is called from. But nobody may destroy an endpoint while an event of it, on another thread,
// waits for him: for a lock that he holds, for work of his thread, or for his own event to end.
#pragma once

#include <port/Reference.h>

#include "xpc/LXPCConnection.h"
#include "xpc/LXPCData.h"
#include "xpc/LXPCEventNotify.h"

struct LXPCEndpointState;

#pragma GCC visibility push(default)

class LXPCBase {
public:
    LXPCBase(const LXPCBase&) = delete;
    LXPCBase& operator=(const LXPCBase&) = delete;
    virtual ~LXPCBase();

    // Declares a key; the record is copied, its link is not used. A name that is declared twice gives two
    // items. The same keys serve messages and replies: a client declares the reply keys that it wants to see.
    void AddKey(const char* szKey, LXPCDataType eType);
    void AddKey(const LXPCDictionaryKeyListable& key);

    // Sends the items as a new message. With `bWantReply` the answer arrives on the main dispatch queue as
    // `EvReplyReceived` or `EvConnectionError`; without it `EvMessageSent` follows. Queued or written at once
    // by the calling thread, never blocks; failures arrive as errors of the connection. Nothing is sent on a
    // handle of -1 or 0.
    void SendMessage(long connection, const LList<LXPCDataListable>& loItems, bool bWantReply);

    // Sends the items as the reply to a message, from inside `EvMessageReceived`; `EvMessageSent` follows.
    // A message that asked for no reply, or was answered already, is left alone: nothing is sent or reported.
    // See `LXPCLateReply` for a reply that is given later.
    void SendReply(long connection, long message, const LList<LXPCDataListable>& loItems);

    // Makes the events of the connection arrive at the sink, and resumes the record if it is suspended. The
    // record may be gone when the call returns, as after `LXPCConnection::Resume`.
    void SetupConnectionHandlerAndResume(LXPCConnection& connection);

    // Lets no further event begin, and does not wait. True when none runs on another thread: the destructor will
    // not wait either. For who must not wait for a sink, such as a process that ends: after false it keeps the
    // endpoint and the sink, and the process ends with them. May be called again.
    bool EndEvents();

protected:
    explicit LXPCBase(port::Reference<LXPCEndpointState> pShared);

    // Ends the delivery of events and waits for those on other threads, as the destructor is to. Destructors of
    // derived classes call it first: the events may use the whole object until then.
    void _CloseEvents();

private:
    friend class LXPCLateReply;
    port::Reference<LXPCEndpointState> pState;
};

// Tells the sink which error it is, by identity with the platform's error objects.
void ErrorHandler(void* pError, long connection, LXPCEventNotify* pNotify);

#pragma GCC visibility pop
