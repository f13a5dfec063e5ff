#include "xpc/XPCListener.h"

#include "dispatch/Closer.h"
#include "dispatch/MainLoop.h"
#include "dispatch/WorkerPool.h"
#include "host/Heap.h"
#include "host/SystemCalls.h"
#include "xpc/XPCConnection.h"
#include "xpc/XPCPeers.h"
#include "xpc/XPCReplyTable.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace port {
namespace {

// The listeners whose socket files are to be removed when the process ends by `exit`. That may happen on any
// thread, even in a signal handler, so the end takes the lock only if it is free.
struct Listening {
    std::mutex mutex;
    std::vector<XPCEndpoint*> endpoints;

    static Listening& shared() {
        static Listening& listening = *new Listening;
        return listening;
    }
    // Registered at the first listener, so that a process without one has no work at its end.
    void add(XPCEndpoint* endpoint) {
        static const int registered = std::atexit([] { shared().unlinkAll(); });
        static_cast<void>(registered);
        const std::lock_guard lock(mutex);
        endpoints.push_back(endpoint);
    }
    void remove(const XPCEndpoint* endpoint) {
        const std::lock_guard lock(mutex);
        std::erase(endpoints, endpoint);
    }
    void unlinkAll() {
        const std::unique_lock lock(mutex, std::try_to_lock);
        if (!lock)
            return;
        for (XPCEndpoint* const endpoint : endpoints)
            endpoint->unlinkOwn();
    }
};

constexpr std::chrono::milliseconds kPause{100}; // of a listener that can accept nobody

UniqueFd spareDescriptor() {
    return UniqueFd(sys::open("/dev/null", O_RDONLY));
}

} // namespace

XPCRef<XPCListener> XPCListener::create(const char* name, dispatch_queue_t target) {
    return create(XPCEndpoint::listen(name), target);
}

XPCRef<XPCListener> XPCListener::create(std::unique_ptr<XPCEndpoint> endpoint, dispatch_queue_t target) {
    if (endpoint == nullptr)
        return {};
    XPCRef<XPCListener> listener(new XPCListener(std::move(endpoint), target));
    listener->enter();
    // Here, where it can be told that the kernel refuses: a service that is up must be heard.
    if (listener->epoll_.add(listener->endpoint_->socket(), 0, listener->key_))
        return listener;
    const int error = errno;
    listener = {};
    errno = error;
    return {};
}

XPCListener::XPCListener(std::unique_ptr<XPCEndpoint> endpoint, dispatch_queue_t target)
    : _xpc_connection_s(target),
      epoll_(target == dispatch_get_main_queue() ? MainLoop::shared().epoll() : WorkerPool::shared().epoll()),
      forMain_(target == dispatch_get_main_queue()), user_(::geteuid()), endpoint_(std::move(endpoint)),
      spare_(spareDescriptor()) {}

// Behind the constructor, so that one who finds no memory half-way is taken out again by the destructor.
void XPCListener::enter() {
    key_ = SourceTable::shared().add(*this);
    Listening::shared().add(endpoint_.get());
    // What a crowd of peers has left behind would stay for as long as the service is quiet.
    WorkerPool::whenLastLeaves(giveHeapBack);
}

XPCListener::~XPCListener() {
    SourceTable::shared().remove(key_);
    close();
}

// The listener's lock is held over the calls of the pool and the kernel, so that suspensions and watch cannot
// part; the queue is resumed behind it, for its turn may begin at once.
void XPCListener::resume() {
    {
        const std::lock_guard lock(mutex_);
        if (suspensions_ != 0 && --suspensions_ == 0 && endpoint_ != nullptr) {
            if (!forMain_)
                WorkerPool::shared().beginWatch(WorkerPool::Watcher::MainLoop);
            hear();
        }
    }
    queue().resume();
}

void XPCListener::suspend() {
    queue().suspend();
    const std::lock_guard lock(mutex_);
    if (suspensions_++ == 0 && endpoint_ != nullptr) {
        epoll_.modify(endpoint_->socket(), 0, key_);
        if (!forMain_)
            WorkerPool::shared().endWatch(WorkerPool::Watcher::MainLoop);
    }
}

void XPCListener::cancel() {
    dropEvents();
    close();
    finish();
}

void XPCListener::close() {
    const std::lock_guard lock(mutex_);
    if (endpoint_ == nullptr)
        return;
    // Out of the list first: the end of the process may look through it on another thread.
    Listening::shared().remove(endpoint_.get());
    endpoint_->unlinkOwn();
    endpoint_.reset();
    if (!forMain_ && suspensions_ == 0)
        WorkerPool::shared().endWatch(WorkerPool::Watcher::MainLoop);
}

// One connection an event, so that no flood of connections holds the thread. A peer for which there is no memory
// is turned away.
SourceResult XPCListener::ready(std::uint32_t /*events*/) {
    try {
        if (UniqueFd socket = accept())
            offer(std::move(socket));
    } catch (const std::bad_alloc&) {
    }
    return SourceResult::Done;
}

// On the main thread or on the leader, and perhaps on two workers at once. The lock keeps the endpoint while it
// is used; EAGAIN is a peer that the other one got, or that has gone.
UniqueFd XPCListener::accept() {
    const std::lock_guard lock(mutex_);
    if (endpoint_ == nullptr)
        return {};
    UniqueFd socket(sys::accept4(endpoint_->socket(), nullptr, nullptr, SOCK_NONBLOCK));
    if (socket || errno == EAGAIN || errno == ECONNABORTED || turnAway())
        return socket;
    // Left waiting, the peer would wake this loop for ever.
    epoll_.modify(endpoint_->socket(), 0, key_);
    WorkerPool::shared().callAt(WorkerPool::Clock::now() + kPause, key_);
    return {};
}

// Without descriptors a peer is closed at once, with the spare one. False when there is no help.
bool XPCListener::turnAway() {
    if ((errno != EMFILE && errno != ENFILE) || !spare_)
        return false;
    // Another thread may take the place that becomes free: then nobody is accepted, and the pause helps.
    spare_.reset();
    UniqueFd socket(sys::accept4(endpoint_->socket(), nullptr, nullptr, SOCK_NONBLOCK));
    const bool accepted = bool(socket);
    Closer::shared().end(std::move(socket));
    spare_ = spareDescriptor();
    return accepted;
}

// The pause is over.
void XPCListener::expired() {
    const std::lock_guard lock(mutex_);
    if (!spare_)
        spare_ = spareDescriptor();
    if (endpoint_ != nullptr && suspensions_ == 0)
        hear();
}

void XPCListener::hear() {
    if (!epoll_.modify(endpoint_->socket(), EPOLLIN, key_))
        WorkerPool::shared().callAt(WorkerPool::Clock::now() + kPause, key_);
}

// The place among the peers is taken before there is a connection, whose destructor gives it back.
void XPCListener::offer(UniqueFd socket) {
    pid_t pid = 0;
    if (!xpcPeerIsOurs(socket.get(), pid, user_) || !XPCPeers::shared().enter(pid))
        return Closer::shared().end(std::move(socket));
    XPCRef<XPCConnection> peer;
    try {
        peer = XPCConnection::ofPeer(std::move(socket), pid);
    } catch (const std::bad_alloc&) {
        return XPCPeers::shared().leave(pid);
    }
    queue().append(Task([this, peer = std::move(peer)] { introduce(*peer); }));
}

// On the listener's queue. A peer that the handler does not retain goes with the task.
void XPCListener::introduce(XPCConnection& peer) {
    try {
        deliver(&peer);
    } catch (const std::bad_alloc&) {
        peer.cancel();
    }
}

void XPCListener::send(XPCDictionary& /*message*/) {}

void XPCListener::sendWithReply(XPCDictionary& /*message*/, dispatch_queue_t queue, xpc_handler_t handler) {
    XPCReplyHandler(queue, std::move(handler))
        .answer(XPCRef<XPCObject>::retained(this),
                XPCRef<XPCObject>(XPCObject::from(XPC_ERROR_CONNECTION_INVALID)));
}

void XPCListener::sendBarrier(dispatch_block_t barrier) {
    queue().append(Task(std::move(barrier)));
}

} // namespace port
