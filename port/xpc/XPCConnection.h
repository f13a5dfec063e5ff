// One end of a connection: a client's, made for a service name, or a server's, made for an accepted peer.
//
// Thread-safety: every function may be called from any thread that holds a reference. One lock covers the
// state, the socket and what is to be sent; it is never held while a handler runs. Reading is one thread's
// business at a time, and no lock is held for it.
#pragma once

#include "dispatch/Source.h"
#include "dispatch/WorkerPool.h"
#include "xpc/XPCFrameReader.h"
#include "xpc/XPCFrameWriter.h"
#include "xpc/XPCHandle.h"
#include "xpc/XPCReplyTable.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <port/UniqueFd.h>
#include <string>
#include <vector>

namespace port {

class XPCConnection final : public _xpc_connection_s, private Source, private XPCFrameSink {
public:
    // A client of the named service; connects when it is first resumed.
    // A bundled service is started when nobody serves the name.
    enum class Kind { Named, Bundled };
    static XPCRef<XPCConnection> toService(Kind kind, const char* name, dispatch_queue_t target);
    // The server's end of an accepted connection; its peer has been checked.
    static XPCRef<XPCConnection> ofPeer(UniqueFd socket, pid_t pid);
    // How many ends made by `ofPeer` exist.
    static std::size_t peerCount();
    // What `peerPid` of those made from now on answers; -1: the real id.
    static void forcePid(pid_t pid);

    void resume() override;
    void cancel() override;
    pid_t peerPid() const override;
    void send(XPCDictionary& message) override;
    void sendWithReply(XPCDictionary& message, dispatch_queue_t queue, xpc_handler_t handler) override;
    void sendBarrier(dispatch_block_t barrier) override;

private:
    enum class State {
        Created,     // never resumed: what is sent waits
        Connecting,  // the service has no room just now: what is sent waits
        Open,        //
        Interrupted, // the service went away: the next message connects again
        Over,        // cancelled or lost for good: what is sent is dropped
    };
    // What a change of state leaves to be done once the lock is gone.
    struct Leftovers {
        std::vector<XPCReplyHandler> replies;
        xpc_object_t error = nullptr; // their answer
        bool opened = false;
        bool ended = false;
    };
    // What the connection does on a worker when its turn comes; it is retained for it.
    struct Turn final : Runnable {
        Turn(XPCConnection& connection, void (XPCConnection::*action)()) : owner(connection), act(action) {}
        void run() noexcept override;
        XPCConnection& owner;
        void (XPCConnection::*act)();
    };

    XPCConnection(Kind kind, std::string name, dispatch_queue_t target);
    XPCConnection(UniqueFd socket, pid_t pid);
    ~XPCConnection();
    void dispose() noexcept override;

    // Source
    bool pin() noexcept override { return retainUnlessGone(); }
    void unpin() noexcept override { release(); }
    bool ready(std::uint32_t events) override;
    void expired() override;
    // XPCFrameSink
    void frameReceived(XPCRef<XPCDictionary> frame) override;

    bool isClient() const { return !name_.empty(); }
    void setState(State state) { state_ = state; }

    // Under the lock, those that change what is to be sent or the state; `left` is then settled without it.
    void activate(Leftovers& left);
    void connect(Leftovers& left);
    bool mayYetConnect(int error);
    void open(Leftovers& left);
    void write(XPCDictionary& message, XPCFrameKind kind, std::uint64_t replyId, Leftovers& left);
    void flush();
    bool mayDefer(XPCFrameKind kind);
    void written(XPCWriteResult result);
    void watchOutput(bool wanted);
    void dropWaiting(Leftovers& left, xpc_object_t error);
    void endForGood(Leftovers& left);
    void closeSocket();
    void keepWhileBusy();
    bool mustNotRead() const;
    void noteFrame(bool emptied);
    void callAt(WorkerPool::Clock::time_point when);

    // Without the lock.
    void settle(Leftovers left);
    void watch();
    bool watchPeer(std::unique_lock<std::mutex>& lock);
    bool watchService(std::unique_lock<std::mutex>& lock);
    bool addTo(Epoll& epoll, std::uint32_t events);
    void readInput(bool hungUp);
    bool beginReading(bool hungUp);
    void readOn();
    bool endReading(XPCReadResult result);
    void continueInput();
    void lost();
    void deliverMessage(XPCDictionary& message);
    void queueTurnBegins() override;
    void queueRanEmpty() override;

    const std::string name_; // empty: an accepted peer
    const Kind kind_ = Kind::Named;
    const pid_t forcedPid_ = -1;
    mutable std::mutex mutex_;
    // Locked after `mutex_`, and held alone while the kernel is told to watch the socket, which may call the
    // thread that reads it: until then nobody closes it.
    std::mutex watchMutex_;
    State state_ = State::Created;
    UniqueFd socket_;
    SourceKey key_ = kNoSource;
    pid_t pid_ = 0;     // a peer's
    bool kept_ = false; // holds a reference to itself while something is to be sent or answered

    XPCFrameWriter writer_;
    const bool ownTurns_; // the queue runs on the workers, so a turn that is in line comes at once
    bool outputBlocked_ = false;
    bool wroteLarge_ = false;    // the last message: what follows it gains nothing by waiting for company
    bool turnComesSoon_ = false; // that of the queue, but not yet
    unsigned gathered_ = 0;      // barriers that wait for it
    bool flushComes_ = false;    // with the turn of the queue that is in line
    std::size_t deferred_ = 0;   // frames that wait for it
    XPCReplyTable replies_;
    WorkerPool::Clock::time_point connectBefore_;
    bool launched_ = false; // in this attempt to connect

    // The reading thread's, whoever that is.
    XPCFrameReader reader_;
    Turn inputTurn_{*this, &XPCConnection::readOn}; // while the socket has more than one turn's worth
    unsigned reads_ = 0;                            // in this turn
    unsigned frames_ = 0;                           // completed by the last read

    bool reading_ = false;                 // a thread reads, or the next turn of reading is in line
    bool moreToRead_ = false;              // an event came meanwhile
    std::atomic<bool> readingHeld_{false}; // not read because the queue is full or suspended
    bool frameTimed_ = false;              // a started frame keeps us waiting
    bool deadlineSet_ = false;
    WorkerPool::Clock::time_point frameBegan_;
};

} // namespace port
