#include "xpc/XPCListener.h"

#include "dispatch/MainLoop.h"
#include "dispatch/WorkerPool.h"
#include "host/SystemCalls.h"
#include "xpc/XPCConnection.h"
#include "xpc/XPCReplyTable.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
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
    return XPCRef<XPCListener>(new XPCListener(std::move(endpoint), target));
}

XPCListener::XPCListener(std::unique_ptr<XPCEndpoint> endpoint, dispatch_queue_t target)
    : _xpc_connection_s(target),
      epoll_(target == dispatch_get_main_queue() ? MainLoop::shared().epoll() : WorkerPool::shared().epoll()),
      forMain_(target == dispatch_get_main_queue()), user_(::geteuid()), endpoint_(std::move(endpoint)),
      spare_(spareDescriptor()), key_(SourceTable::shared().add(*this)) {
    Listening::shared().add(endpoint_.get());
}

XPCListener::~XPCListener() {
    SourceTable::shared().remove(key_);
    close();
}

void XPCListener::resume() {
    {
        const std::lock_guard lock(mutex_);
        if (suspensions_ != 0 && --suspensions_ == 0 && endpoint_ != nullptr) {
            if (!forMain_)
                WorkerPool::shared().beginWatch(WorkerPool::Watcher::MainLoop);
            epoll_.add(endpoint_->socket(), EPOLLIN, key_);
        }
    }
    queue().resume();
}

void XPCListener::suspend() {
    queue().suspend();
    const std::lock_guard lock(mutex_);
    if (suspensions_++ == 0 && endpoint_ != nullptr) {
        epoll_.remove(endpoint_->socket());
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
    Listening::shared().remove(endpoint_.get());
    endpoint_->unlinkOwn();
    endpoint_.reset();
    if (!forMain_ && suspensions_ == 0)
        WorkerPool::shared().endWatch(WorkerPool::Watcher::MainLoop);
}

// One connection an event, so that no flood of connections holds the thread.
SourceResult XPCListener::ready(std::uint32_t /*events*/) {
    UniqueFd socket = accept();
    if (socket)
        offer(std::move(socket));
    return SourceResult::Done;
}

UniqueFd XPCListener::accept() {
    const std::lock_guard lock(mutex_);
    if (endpoint_ == nullptr)
        return {};
    UniqueFd socket(sys::accept4(endpoint_->socket(), nullptr, nullptr, SOCK_NONBLOCK));
    if (!socket && (errno == EMFILE || errno == ENFILE)) {
        // Left waiting, the peer would wake this loop for ever.
        spare_.reset();
        UniqueFd(sys::accept4(endpoint_->socket(), nullptr, nullptr, SOCK_NONBLOCK)).reset();
        spare_ = spareDescriptor();
    }
    return socket;
}

void XPCListener::offer(UniqueFd socket) {
    pid_t pid = 0;
    if (XPCConnection::peerCount() >= kMaxConnections || !xpcPeerIsOurs(socket.get(), pid, user_))
        return;
    queue().append(
        Task([this, peer = XPCConnection::ofPeer(std::move(socket), pid)] { deliver(peer.get()); }));
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
