// What servers and clients share: the event sink, the declared keys, sending, and the dispatch of events.
//
// Thread-safety: the sending operations may be called from any thread. Keys are declared before the first
// connection is resumed and only read afterwards.
//
// Lifetime: the sink outlives the endpoint. An endpoint may be destroyed from inside one of its own events;
// events that have not begun by then are dropped. See `_CloseEvents` for those that run on other threads.
#pragma once

#include <memory>

#include "xpc/LXPCConnection.h"
#include "xpc/LXPCData.h"
#include "xpc/LXPCEventNotify.h"

class LXPCEventGate;

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
    void SendReply(long connection, long message, const LList<LXPCDataListable>& loItems);

    // Makes the events of the connection arrive at the sink, and resumes the record if it is suspended. The
    // record may be gone when the call returns, as after `LXPCConnection::Resume`.
    void SetupConnectionHandlerAndResume(LXPCConnection& connection);

protected:
    // The sink is not owned.
    explicit LXPCBase(LXPCEventNotify* pSink);

    // Ends the delivery of events, before anything that an event uses is destroyed: derived destructors call
    // it first. Waits for the events of this endpoint that run on other threads, at most
    // `LXPCCloseWaitMilliseconds` in all, never for the event that it is called from.
    void _CloseEvents();
    const std::shared_ptr<LXPCEventGate>& _GetGate() const { return pGate; }
    // Gives back the sink, as an event's last use of the endpoint: the sink may destroy it, or never return.
    template <typename T>
    T* _LeaveTo(T* pSink) const {
        _Settle();
        return pSink;
    }

private:
    void _Settle() const;
    // What the runtime may call for as long as it likes: it does the work only while this endpoint is there.
    template <typename Work>
    auto _WhileOpen(Work work) const;
    void _Handle(void* pObject, bool bReply);
    void _SendBarrier(long connection);

    LXPCEventNotify* pNotify;
    LList<LXPCDictionaryKeyListable> loKeys;
    std::shared_ptr<LXPCEventGate> pGate;
};

// How long a destroyed endpoint waits for its events on other threads: long enough for any event that does
// not block, short enough for a process that ends.
constexpr unsigned LXPCCloseWaitMilliseconds = 50;

// Tells the sink which error it is, by identity with the platform's error objects.
void ErrorHandler(void* pError, long connection, LXPCEventNotify* pNotify);
