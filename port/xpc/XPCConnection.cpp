#include "xpc/XPCConnection.h"

#include "dispatch/MainLoop.h"
#include "xpc/XPCBundledService.h"
#include "xpc/XPCEndpoint.h"

#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr int kBusySendBuffer = 1 << 20; // bytes
constexpr std::size_t kMaxDeferred = 2 * kGatherFrames;
constexpr unsigned kGatherBarriers = 8; // of large messages, then the queue's turn must come
constexpr auto kConnectRetry = 2ms;     // while the service's queue of new connections is full
constexpr auto kConnectPatience = 5s;

// A client's socket is in the main loop's set and in the workers': the kernel wakes the main thread if it
// waits there, which then gets its reply without a change of threads, else a worker. Never both.
constexpr std::uint32_t kClientEvents = EPOLLIN | EPOLLET | EPOLLEXCLUSIVE;
constexpr std::uint32_t kPeerEvents = EPOLLIN | EPOLLRDHUP | EPOLLET;
// An exclusive watch cannot ask for output, so a blocked client has a plain one.
constexpr std::uint32_t kBlockedEvents = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;

} // namespace

// The queue first: what arrives at once need not be held back.
void XPCConnection::resume() {
    queue().resume();
    Leftovers left;
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::Created)
            activate(left);
    }
    settle(std::move(left));
    continueInput();
}

void XPCConnection::cancel() {
    Leftovers left;
    dropEvents();
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::Open && !outputBlocked_ && !writer_.isEmpty())
            flush(); // only a blocked socket costs messages
        if (state_ != State::Over)
            endForGood(left);
    }
    settle(std::move(left));
    finish();
}

void XPCConnection::send(XPCDictionary& message) {
    if (!message.seal())
        return;
    const bool isReply = message.kind() == XPCFrameKind::Reply;
    Leftovers left;
    {
        const std::lock_guard lock(mutex_);
        write(message, isReply ? XPCFrameKind::Reply : XPCFrameKind::Message, isReply ? message.replyId() : 0,
              left);
    }
    settle(std::move(left));
}

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

void XPCConnection::sendBarrier(dispatch_block_t barrier) {
    bool starts = false;
    bool hurries = false;
    Urgency urgency = Urgency::Now;
    {
        const std::lock_guard lock(mutex_);
        if (!writer_.isEmpty())
            return writer_.enqueueBarrier(std::move(barrier));
        starts = queue().add(Task(std::move(barrier)));
        if (starts) {
            urgency = wroteLarge_ ? Urgency::Soon : Urgency::Now;
            turnComesSoon_ = wroteLarge_;
            flushComes_ = ownTurns_ && !wroteLarge_;
            gathered_ = 1;
        } else {
            hurries = turnComesSoon_ && (++gathered_ == kGatherBarriers || !wroteLarge_);
        }
    }
    // Without the lock, which the worker that is called takes first.
    if (starts)
        queue().schedule(urgency);
    else if (hurries)
        WorkerPool::shared().hurry();
}

void XPCConnection::activate(Leftovers& left) {
    key_ = SourceTable::shared().add(*this);
    if (isClient())
        connect(left);
    else
        open(left);
}

void XPCConnection::connect(Leftovers& left) {
    if (state_ != State::Connecting) {
        connectBefore_ = WorkerPool::Clock::now() + kConnectPatience;
        launched_ = false;
    }
    socket_ = xpcConnect(name_);
    if (socket_) {
        open(left);
    } else if (mayYetConnect(errno)) {
        setState(State::Connecting);
        callAt(WorkerPool::Clock::now() + kConnectRetry);
    } else {
        endForGood(left);
    }
}

bool XPCConnection::mayYetConnect(int error) {
    if (WorkerPool::Clock::now() >= connectBefore_)
        return false;
    if (kind_ == Kind::Bundled && !launched_ && error != EAGAIN)
        return launched_ = xpcLaunchBundled(name_);
    return launched_ || error == EAGAIN;
}

// The socket is there: what waits is sent, and `watch` follows.
void XPCConnection::open(Leftovers& left) {
    setState(State::Open);
    outputBlocked_ = false;
    readingHeld_ = false;
    frameTimed_ = false;
    WorkerPool::shared().beginWatch(isClient() ? WorkerPool::Watcher::Worker : WorkerPool::Watcher::MainLoop);
    flush();
    left.opened = true;
}

void XPCConnection::watch() {
    Leftovers left;
    {
        std::unique_lock lock(mutex_);
        if (state_ != State::Open || (isClient() ? watchService(lock) : watchPeer(lock)))
            return;
        lock.lock();
        if (state_ != State::Over)
            endForGood(left);
    }
    settle(std::move(left));
}

// Both give the lock back before the kernel may call a thread that takes it first.
bool XPCConnection::watchPeer(std::unique_lock<std::mutex>& lock) {
    const std::lock_guard watching(watchMutex_);
    const std::uint32_t events = outputBlocked_ ? kBlockedEvents : kPeerEvents;
    lock.unlock();
    return addTo(WorkerPool::shared().epoll(), events);
}

bool XPCConnection::watchService(std::unique_lock<std::mutex>& lock) {
    const std::lock_guard watching(watchMutex_);
    const std::uint32_t events = outputBlocked_ ? kBlockedEvents : kClientEvents;
    lock.unlock();
    return addTo(MainLoop::shared().epoll(), kClientEvents) && addTo(WorkerPool::shared().epoll(), events);
}

// Whoever changes what the watch is about may have been faster.
bool XPCConnection::addTo(Epoll& epoll, std::uint32_t events) {
    return epoll.add(socket_.get(), events, key_) || errno == EEXIST;
}

void XPCConnection::Turn::run() noexcept {
    const WorkerPool::Returning scope;
    (owner.*act)();
    owner.release();
}

void XPCConnection::closeSocket() {
    if (!socket_)
        return;
    {
        const std::lock_guard watching(watchMutex_);
        socket_.reset(); // also ends both watches
    }
    if (state_ != State::Created)
        WorkerPool::shared().endWatch(isClient() ? WorkerPool::Watcher::Worker
                                                 : WorkerPool::Watcher::MainLoop);
}

void XPCConnection::write(XPCDictionary& message, XPCFrameKind kind, std::uint64_t replyId, Leftovers& left) {
    if (state_ == State::Interrupted)
        connect(left);
    if (state_ == State::Over)
        return;
    wroteLarge_ = message.body().size() >= kLargeFrameBytes;
    const bool now = state_ == State::Open && !outputBlocked_ && (wroteLarge_ || !mayDefer(kind));
    if (now && writer_.isEmpty())
        written(writer_.send(socket_.get(), message, kind, replyId));
    else if (!writer_.enqueue(message, kind, replyId))
        socket_ ? written(XPCWriteResult::Failed) : endForGood(left);
    else if (now)
        flush();
    keepWhileBusy();
}

// A worker is on its way to run a barrier: it writes what gathers until then with one call. Whoever wants an
// answer does not wait for it.
bool XPCConnection::mayDefer(XPCFrameKind kind) {
    return flushComes_ && kind == XPCFrameKind::Message && ++deferred_ <= kMaxDeferred;
}

void XPCConnection::queueTurnBegins() {
    const std::lock_guard lock(mutex_);
    flushComes_ = false;
    turnComesSoon_ = false;
    if (state_ == State::Open && !outputBlocked_ && !writer_.isEmpty())
        flush();
}

void XPCConnection::flush() {
    deferred_ = 0;
    std::vector<dispatch_block_t> reached;
    written(writer_.flush(socket_.get(), reached));
    for (dispatch_block_t& barrier : reached)
        queue().append(Task(std::move(barrier)));
    keepWhileBusy();
}

void XPCConnection::written(XPCWriteResult result) {
    if (result == XPCWriteResult::Failed)
        ::shutdown(socket_.get(), SHUT_RDWR); // what the peer has sent is still read, then the end is seen
    else if (outputBlocked_ != (result == XPCWriteResult::Blocked))
        watchOutput(!outputBlocked_);
}

void XPCConnection::watchOutput(bool wanted) {
    const std::lock_guard watching(watchMutex_);
    outputBlocked_ = wanted;
    Epoll& epoll = WorkerPool::shared().epoll();
    const int fd = socket_.get();
    if (wanted) // a connection that fills its socket gets a larger one: fewer turns for the same bytes
        ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kBusySendBuffer, sizeof kBusySendBuffer);
    if (!isClient()) {
        epoll.modify(fd, wanted ? kBlockedEvents : kPeerEvents, key_);
        return;
    }
    epoll.remove(fd);
    epoll.add(fd, wanted ? kBlockedEvents : kClientEvents, key_);
}

// The runtime's own reference, for as long as something is to be sent or answered. Whoever calls holds
// another one, so this release is never the last.
void XPCConnection::keepWhileBusy() {
    const bool busy = state_ != State::Created && !(writer_.isEmpty() && replies_.isEmpty());
    if (busy == kept_)
        return;
    kept_ = busy;
    busy ? retain() : release();
}

void XPCConnection::dropWaiting(Leftovers& left, xpc_object_t error) {
    std::vector<dispatch_block_t> barriers;
    writer_.clear(barriers);
    for (dispatch_block_t& barrier : barriers)
        queue().append(Task(std::move(barrier)));
    left.replies = replies_.takeAll();
    left.error = error;
    keepWhileBusy();
}

void XPCConnection::endForGood(Leftovers& left) {
    if (reading_)
        ::shutdown(socket_.get(), SHUT_RDWR); // the reader closes it
    else
        closeSocket();
    setState(State::Over);
    dropWaiting(left, XPC_ERROR_CONNECTION_INVALID);
    left.ended = true;
}

void XPCConnection::settle(Leftovers left) {
    for (XPCReplyHandler& waiting : left.replies)
        waiting.answer(XPCRef<XPCObject>::retained(this), XPCRef<XPCObject>(XPCObject::from(left.error)));
    if (left.opened)
        watch();
    if (left.ended)
        finish();
}

void XPCConnection::callAt(WorkerPool::Clock::time_point when) {
    WorkerPool::shared().callAt(when, key_);
}

// The link is gone, found by the thread that reads.
void XPCConnection::lost() {
    Leftovers left;
    bool comesBack = false;
    {
        const std::lock_guard lock(mutex_);
        reading_ = false;
        frameTimed_ = false;
        comesBack = isClient() && state_ == State::Open;
        closeSocket();
        if (state_ == State::Over)
            return;
        setState(comesBack ? State::Interrupted : State::Over);
        dropWaiting(left, XPC_ERROR_CONNECTION_INTERRUPTED);
        left.ended = !comesBack;
    }
    settle(std::move(left));
    if (comesBack)
        injectError(XPC_ERROR_CONNECTION_INTERRUPTED);
}

} // namespace port
