#include "xpc/XPCConnection.h"

#include "xpc/XPCEndpoint.h"
#include "xpc/XPCPeers.h"

#include <atomic>
#include <new>
#include <sys/epoll.h>
#include <utility>

namespace port {
namespace {

using Clock = WorkerPool::Clock;
using State = XPCConnectionState;

constexpr pid_t kLargestPid = 99999; // of the platform
constexpr pid_t kNoForcedPid = -1;

constinit std::atomic<pid_t> pidOfPeers{kNoForcedPid};

// Larger ids are folded into the platform's range; 0, a peer of another pid namespace, stays.
pid_t platformPid(pid_t pid) {
    return pid > kLargestPid ? 1 + (pid - 1) % kLargestPid : pid;
}

pid_t pidOfPeer(pid_t pid) {
    const pid_t forced = pidOfPeers;
    return forced != kNoForcedPid ? forced : platformPid(pid);
}

} // namespace

XPCRef<XPCConnection> XPCConnection::toService(Kind kind, const char* name, dispatch_queue_t target) {
    return XPCRef<XPCConnection>(new XPCConnection(kind, name, target));
}

XPCRef<XPCConnection> XPCConnection::ofPeer(UniqueFd socket, pid_t pid) {
    return XPCRef<XPCConnection>(new XPCConnection(std::move(socket), pid));
}

void XPCConnection::forcePid(pid_t pid) {
    pidOfPeers = pid;
}

XPCConnection::XPCConnection(Kind kind, std::string name, dispatch_queue_t target)
    : _xpc_connection_s(target), connector_(std::in_place, kind, std::move(name)),
      socket_(XPCWatchedSocket::Side::Client), gathering_(target == nullptr) {}

XPCConnection::XPCConnection(UniqueFd socket, pid_t pid)
    : _xpc_connection_s(nullptr), process_(pid), socket_(XPCWatchedSocket::Side::Peer, std::move(socket)),
      gathering_(true) {}

// Only a connection that was never resumed can have something waiting here: else it keeps itself.
// On whatever thread lets go of the last reference, without a lock: nobody else knows the connection, and the
// table of sources no longer pins it.
XPCConnection::~XPCConnection() {
    std::vector<dispatch_block_t> barriers;
    writer_.clear(barriers);
    for (dispatch_block_t& barrier : barriers)
        GlobalQueue::shared().append(Task(std::move(barrier)));
    for (XPCReplyHandler& waiting : replies_.takeAll())
        waiting.answer({}, XPCRef<XPCObject>(XPCObject::from(XPC_ERROR_CONNECTION_INVALID)));
    if (!isClient())
        XPCPeers::shared().leave(process_);
}

pid_t XPCConnection::peerPid() const {
    if (!isClient())
        return pidOfPeer(process_);
    const std::lock_guard lock(mutex_);
    pid_t pid = 0;
    if (socket_.isOpen())
        xpcPeerIsOurs(socket_.fd(), pid);
    return platformPid(pid);
}

// The queue first: what arrives at once need not be held back.
void XPCConnection::resume() {
    queue().resume();
    Leftovers left;
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::Created) {
            socket_.setSource(*this);
            isClient() ? connect(left) : open({}, left);
        }
    }
    settle(std::move(left));
    continueInput();
}

// Any thread, a handler of this connection included. Events are dropped before the state changes: one that is
// being read meanwhile goes into the queue, and no further.
void XPCConnection::cancel() {
    Leftovers left;
    dropEvents();
    {
        const std::lock_guard lock(mutex_);
        if (mayFlush())
            flush(); // only a blocked socket costs messages
        if (state_ != State::Over)
            endForGood(left);
    }
    settle(std::move(left));
    finish();
}

// A reply that could not be built ends the connection: the peer would wait for it for ever.
void XPCConnection::send(XPCDictionary& message) {
    const bool isReply = message.kind() == XPCFrameKind::Reply;
    const bool isWhole = message.seal();
    if (!isWhole && !isReply)
        return;
    Leftovers left;
    {
        const std::lock_guard lock(mutex_);
        if (!isWhole)
            return giveUp();
        write(message, isReply ? XPCFrameKind::Reply : XPCFrameKind::Message, isReply ? message.replyId() : 0,
              left);
    }
    settle(std::move(left));
}

// The handler is in the table before the frame is in the socket: the reply may be read on another thread before
// `sendmsg` is back here. One that cannot be sent is answered behind the lock, by `settle`.
void XPCConnection::sendWithReply(XPCDictionary& message, dispatch_queue_t queue, xpc_handler_t handler) {
    XPCReplyHandler waiting(queue, std::move(handler));
    Leftovers left;
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::Over || !message.seal()) {
            left.replies.push_back(std::move(waiting));
            left.error = XPC_ERROR_CONNECTION_INVALID;
        } else {
            write(message, XPCFrameKind::MessageWantsReply, replies_.add(std::move(waiting)), left);
        }
    }
    settle(std::move(left));
}

// The look at what is still to be written, and the place in the queue, are one step under the lock: no barrier
// passes what was sent before it.
void XPCConnection::sendBarrier(dispatch_block_t barrier) {
    bool starts = false;
    bool hurries = false;
    Urgency urgency = Urgency::Now;
    {
        const std::lock_guard lock(mutex_);
        if (!writer_.isEmpty())
            return writer_.enqueueBarrier(std::move(barrier));
        starts = queue().add(Task(std::move(barrier)));
        if (starts)
            urgency = gathering_.turnIsPutInLine();
        else
            hurries = gathering_.barrierJoins();
    }
    // Without the lock, which the worker that is called takes first.
    if (starts)
        queue().schedule(urgency);
    else if (hurries)
        WorkerPool::shared().hurry();
}

// On the leader, or on the main thread for a client, when the socket's set reports it.
SourceResult XPCConnection::ready(std::uint32_t events) {
    bool reads = false;
    {
        const std::lock_guard lock(mutex_);
        // The event may be one of the socket before, that another thread has closed since: a look at the new
        // one does no harm.
        const bool hungUp = (events & (EPOLLHUP | EPOLLRDHUP | EPOLLERR)) != 0;
        if (hungUp)
            input_.setLast();
        if ((events & EPOLLOUT) != 0 && state_ == State::Open && socket_.isBlocked())
            flush();
        if ((events & ~std::uint32_t{EPOLLOUT}) != 0 && state_ == State::Open)
            reads = input_.begin(hungUp, mayRead());
    }
    return reads ? readOn() : SourceResult::Done;
}

// On a worker: the next turn of reading a socket that has more than one turn's worth.
void XPCConnection::run() {
    const WorkerPool::Returning scope;
    readOn();
    release();
}

// On the one thread that `begin` or `takeUp` has made the reader, without the lock: senders go on meanwhile.
// Nobody closes the socket under it; who ends the connection shuts it down, and this thread finds that.
SourceResult XPCConnection::readOn() {
    auto next = XPCInput::Next::ReadOn;
    for (unsigned reads = 0; next == XPCInput::Next::ReadOn;) {
        const XPCReadResult result = input_.read(socket_.fd(), *this);
        if (result == XPCReadResult::Closed || result == XPCReadResult::Refused) {
            lost(result == XPCReadResult::Closed);
            return SourceResult::Done;
        }
        next = endReading(result, ++reads);
    }
    return next == XPCInput::Next::DoneForNow ? SourceResult::MoreIsNear : SourceResult::Done;
}

// State, queue and phase are looked at under the one lock that `continueInput` takes too: either this thread
// sees the room in the queue, or the queue's turn finds the input held and takes it up.
XPCInput::Next XPCConnection::endReading(XPCReadResult result, unsigned reads) {
    const std::lock_guard lock(mutex_);
    if (state_ == State::Over) {
        input_.stop();
        socket_.close();
        return XPCInput::Next::Done;
    }
    XPCFrameClock::Call call;
    const XPCInput::Next next = input_.end(result, reads, mayRead(), Clock::now(), call);
    callAt(call);
    if (next == XPCInput::Next::LaterTurn)
        putReadingInLine();
    return next;
}

// Still on the reader, without the lock. The queue is a member, and keeps the connection while it is in line or
// runs: so the task holds no reference.
bool XPCConnection::frameReceived(XPCRef<XPCDictionary> frame) {
    if (refusesDescriptors() && frame->passesDescriptors())
        return false;
    if (frame->kind() != XPCFrameKind::Reply) {
        queue().append(Task([this, message = std::move(frame)] { deliverMessage(*message); }));
        return true;
    }
    XPCReplyHandler waiting;
    {
        const std::lock_guard lock(mutex_);
        waiting = replies_.take(frame->replyId());
        keepWhileBusy();
    }
    if (waiting)
        waiting.answer(XPCRef<XPCObject>::retained(this), XPCRef<XPCObject>(frame.release()));
    return true;
}

// The memory that a peer's message costs is missing to that peer alone.
// On the worker that has the queue's turn, without a lock.
void XPCConnection::deliverMessage(XPCDictionary& message) {
    message.setRemoteConnection(this);
    try {
        deliver(&message);
    } catch (const std::bad_alloc&) {
        const std::lock_guard lock(mutex_);
        giveUp();
    }
}

// The link is gone, found by the thread that reads.
void XPCConnection::lost(bool hungUp) {
    Leftovers left;
    bool comesBack = false;
    {
        const std::lock_guard lock(mutex_);
        input_.stop();
        socket_.close(hungUp);
        if (state_ == State::Over)
            return;
        comesBack = isClient();
        state_.become(comesBack ? State::Interrupted : State::Over);
        dropWaiting(left, XPC_ERROR_CONNECTION_INTERRUPTED);
        left.ended = !comesBack;
    }
    settle(std::move(left));
    if (comesBack)
        injectError(XPC_ERROR_CONNECTION_INTERRUPTED);
}

// On the thread that resumes, or on the one whose turn of the queue has ended.
void XPCConnection::continueInput() {
    const std::lock_guard lock(mutex_);
    takeUpInput();
}

// Where `mayRead` stopped it.
void XPCConnection::takeUpInput() {
    if (state_ == State::Open && input_.isHeld() && input_.takeUp(mayRead()))
        putReadingInLine();
}

// Under the lock, and the pool's inside of it: in this order always, for the pool calls nobody under its own.
// The reference is the one that `run` gives back.
void XPCConnection::putReadingInLine() {
    retain();
    WorkerPool::shared().submit(*this);
}

// On the worker that runs the queue's turn: what waited for it goes out with one call.
void XPCConnection::queueTurnBegins() {
    const std::lock_guard lock(mutex_);
    gathering_.turnBegins();
    if (mayFlush())
        flush();
}

// On a worker, pinned: the next attempt to connect, or the end of a frame's time.
void XPCConnection::expired() {
    Leftovers left;
    {
        const std::lock_guard lock(mutex_);
        XPCFrameClock::Call call;
        if (state_ == State::Connecting)
            connect(left);
        else if (input_.expired(Clock::now(), call) && state_ == State::Open)
            socket_.shutDown(); // whoever reads finds the end
        callAt(call);
    }
    settle(std::move(left));
}

void XPCConnection::callAt(XPCFrameClock::Call call) {
    try {
        if (call)
            socket_.callAt(*call);
    } catch (const std::bad_alloc&) {
        giveUp();
    }
}

// Whoever reads the socket finds the end.
void XPCConnection::giveUp() {
    if (state_ == State::Open)
        socket_.shutDown();
}

// With the queue suspended, or full of what was read before, the peer's data stays in the socket. So does that of a
// peer who asks and does not read the answers; a client goes on reading, else both ends might wait for each other.
bool XPCConnection::mayRead() const {
    return !queue().isHeldBack(kFramesPerTurn) &&
           (isClient() || input_.isLast() || writer_.waitingBytes() <= kUnreadBytes);
}

bool XPCConnection::mayFlush() const {
    return state_ == State::Open && !socket_.isBlocked() && !writer_.isEmpty();
}

void XPCConnection::connect(Leftovers& left) {
    const Clock::time_point now = Clock::now();
    if (state_ != State::Connecting)
        connector_->begin(now);
    UniqueFd socket;
    switch (connector_->attempt(now, socket)) {
    case XPCConnector::Result::Connected:
        return open(std::move(socket), left);
    case XPCConnector::Result::TryLater:
        state_.become(State::Connecting);
        return socket_.callAt(now + XPCConnector::kRetryAfter);
    case XPCConnector::Result::GiveUp:
        return endForGood(left);
    }
}

// The state first: an event may come on another thread as soon as the socket is watched, and waits for the
// lock. What was sent before goes out here.
void XPCConnection::open(UniqueFd socket, Leftovers& left) {
    state_.become(State::Open);
    if (!socket_.watch(std::move(socket)))
        return endForGood(left);
    flush();
}

// Under the lock. What waits already goes first: only past an empty queue is a frame written by itself; else it
// joins the queue, which is written at once unless the socket takes nothing now or a turn is to come for it.
void XPCConnection::write(XPCDictionary& message, XPCFrameKind kind, std::uint64_t replyId, Leftovers& left) {
    if (state_ == State::Interrupted)
        connect(left);
    if (state_ == State::Over)
        return;
    const bool waits = gathering_.isToWait(kind, message.body().size());
    const bool now = state_ == State::Open && !socket_.isBlocked() && !waits;
    if (now && writer_.isEmpty())
        written(writer_.send(socket_.fd(), message, kind, replyId));
    else if (!writer_.enqueue(message, kind, replyId))
        socket_.isOpen() ? written(XPCWriteResult::Failed) : endForGood(left);
    else if (now)
        flush();
    keepWhileBusy();
}

void XPCConnection::flush() {
    gathering_.written();
    std::vector<dispatch_block_t> reached;
    try {
        written(writer_.flush(socket_.fd(), reached));
        for (dispatch_block_t& barrier : reached)
            queue().append(Task(std::move(barrier)));
    } catch (const std::bad_alloc&) {
        giveUp();
    }
    keepWhileBusy();
    takeUpInput();
}

// After a failure what the peer has sent is still read, then the end is seen.
void XPCConnection::written(XPCWriteResult result) {
    if (result == XPCWriteResult::Failed)
        socket_.shutDown();
    else
        socket_.setBlocked(result == XPCWriteResult::Blocked);
}

// Whoever calls holds another reference, so this one is never the last.
void XPCConnection::keepWhileBusy() {
    if (state_ != State::Created && !(writer_.isEmpty() && replies_.isEmpty())) {
        if (!self_)
            self_ = XPCRef<XPCConnection>::retained(this);
    } else if (self_) {
        self_ = {};
    }
}

// A barrier runs even if what was sent before it was not written: whoever waits for it must not wait for ever.
void XPCConnection::dropWaiting(Leftovers& left, xpc_object_t error) {
    std::vector<dispatch_block_t> barriers;
    writer_.clear(barriers);
    for (dispatch_block_t& barrier : barriers)
        queue().append(Task(std::move(barrier)));
    left.replies = replies_.takeAll();
    left.error = error;
    keepWhileBusy();
}

// A descriptor that is closed while another thread reads from it could be another file's by then.
void XPCConnection::endForGood(Leftovers& left) {
    if (input_.isReading())
        socket_.shutDown(); // the reader closes it
    else
        socket_.close();
    state_.become(State::Over);
    dropWaiting(left, XPC_ERROR_CONNECTION_INVALID);
    left.ended = true;
}

// Behind the lock: the queues may wake threads that want it, and what a handler holds may call back.
void XPCConnection::settle(Leftovers left) {
    for (XPCReplyHandler& waiting : left.replies)
        waiting.answer(XPCRef<XPCObject>::retained(this), XPCRef<XPCObject>(XPCObject::from(left.error)));
    if (left.ended)
        finish();
}

} // namespace port
