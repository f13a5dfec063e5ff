// One end of a connection: a client's, made for a service name, or a server's, made for an accepted peer.
//
// It joins four parts: the socket and who watches it, the input, the frames that are to be sent and which of them
// wait for company, and the handlers that wait for replies. XPCConnectionState draws how it changes.
//
// Thread-safety: every function may be called from any thread that holds a reference. One lock covers all of it;
// it is never held while a handler runs, nor while the socket is read, which is one thread's business at a time.
#pragma once

#include "dispatch/Runnable.h"
#include "dispatch/Source.h"
#include "xpc/XPCConnectionState.h"
#include "xpc/XPCConnector.h"
#include "xpc/XPCFrameWriter.h"
#include "xpc/XPCGathering.h"
#include "xpc/XPCHandle.h"
#include "xpc/XPCInput.h"
#include "xpc/XPCReplyTable.h"
#include "xpc/XPCWatchedSocket.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <port/UniqueFd.h>
#include <vector>

namespace port {

class XPCConnection final : public _xpc_connection_s, private Source, private Runnable, private XPCFrameSink {
public:
    using Kind = XPCConnector::Kind;
    // A client of the named service; connects when it is first resumed.
    static XPCRef<XPCConnection> toService(Kind kind, const char* name, dispatch_queue_t target);
    // The server's end of an accepted connection; its peer has been checked, and has entered XPCPeers.
    static XPCRef<XPCConnection> ofPeer(UniqueFd socket, pid_t pid);
    // What `peerPid` of accepted peers answers; -1: the real id.
    static void forcePid(pid_t pid);

    void resume() override;
    void cancel() override;
    pid_t peerPid() const override;
    void send(XPCDictionary& message) override;
    void sendWithReply(XPCDictionary& message, dispatch_queue_t queue, xpc_handler_t handler) override;
    void sendBarrier(dispatch_block_t barrier) override;

private:
    // What a change of state leaves to be done once the lock is gone.
    struct Leftovers {
        std::vector<XPCReplyHandler> replies;
        xpc_object_t error = nullptr; // their answer
        bool ended = false;
    };

    XPCConnection(Kind kind, std::string name, dispatch_queue_t target);
    XPCConnection(UniqueFd socket, pid_t pid);
    ~XPCConnection() override;
    void dispose() noexcept override;

    // What the pool and the main loop call. `ready` and `expired` hold a pin, `run` the reference that came with
    // the turn; none of them runs a handler.
    bool pin() noexcept override { return retainUnlessGone(); }
    void unpin() noexcept override { release(); }
    SourceResult ready(std::uint32_t events) override;
    void expired() override;
    void run() override;

    // Reading, without the lock but for `takeUpInput` and `putReadingInLine`.
    SourceResult readOn();
    XPCInput::Next endReading(XPCReadResult result, unsigned reads);
    bool frameReceived(XPCRef<XPCDictionary> frame) override;
    void deliverMessage(XPCDictionary& message);
    void lost(bool hungUp);
    void continueInput();
    void takeUpInput();
    void putReadingInLine();
    void queueTurnBegins() override;
    void queueRanEmpty() override { continueInput(); }
    void settle(Leftovers left);

    // Under the lock. `left` is to be settled without it.
    bool isClient() const { return connector_.has_value(); }
    bool mayRead() const;
    bool mayFlush() const;
    void connect(Leftovers& left);
    void open(UniqueFd socket, Leftovers& left);
    void write(XPCDictionary& message, XPCFrameKind kind, std::uint64_t replyId, Leftovers& left);
    void flush();
    void written(XPCWriteResult result);
    void keepWhileBusy();
    void dropWaiting(Leftovers& left, xpc_object_t error);
    void endForGood(Leftovers& left);
    void callAt(XPCFrameClock::Call call);
    void giveUp();

    const pid_t process_ = 0; // an accepted peer's
    mutable std::mutex mutex_;
    XPCConnectionState state_;
    std::optional<XPCConnector> connector_; // a client's
    XPCWatchedSocket socket_;
    XPCInput input_;
    XPCFrameWriter writer_;
    XPCGathering gathering_;
    XPCReplyTable replies_;
    XPCRef<XPCConnection> self_; // while something is to be sent or answered
};

} // namespace port
