#include "xpc/XPCWatchedSocket.h"

#include "dispatch/Closer.h"
#include "dispatch/MainLoop.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace port {
namespace {

constexpr int kBusySendBuffer = 1 << 20; // bytes

// Edge-triggered: an event comes once, so a reader that stops before the socket is empty has to remember it
// (XPCInput).
constexpr std::uint32_t kClientEvents = EPOLLIN | EPOLLET | EPOLLEXCLUSIVE;
constexpr std::uint32_t kPeerEvents = EPOLLIN | EPOLLRDHUP | EPOLLET;
// An exclusive watch cannot ask for output, so a blocked client has a plain one.
constexpr std::uint32_t kBlockedEvents = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;

} // namespace

XPCWatchedSocket::XPCWatchedSocket(Side side, UniqueFd socket) : side_(side), socket_(std::move(socket)) {}

// Out of the table first: from then on no event of either set finds the source.
XPCWatchedSocket::~XPCWatchedSocket() {
    SourceTable::shared().remove(key_);
    close();
}

void XPCWatchedSocket::setSource(Source& source) {
    key_ = SourceTable::shared().add(source);
}

WorkerPool::Watcher XPCWatchedSocket::watcher() const {
    return isClient() ? WorkerPool::Watcher::Worker : WorkerPool::Watcher::MainLoop;
}

bool XPCWatchedSocket::watch(UniqueFd socket) {
    if (socket)
        socket_ = std::move(socket);
    blocked_ = false;
    WorkerPool& pool = WorkerPool::shared();
    // Before the sets: the first event must find somebody who looks. A refusal leaves it to `close` to take
    // this back.
    pool.beginWatch(watcher());
    return isClient() ? MainLoop::shared().epoll().add(fd(), kClientEvents, key_) &&
                            pool.epoll().add(fd(), kClientEvents, key_)
                      : pool.epoll().add(fd(), kPeerEvents, key_);
}

void XPCWatchedSocket::setBlocked(bool blocked) {
    if (blocked == blocked_)
        return;
    blocked_ = blocked;
    if (blocked) // a connection that fills its socket gets a larger one: fewer turns for the same bytes
        ::setsockopt(fd(), SOL_SOCKET, SO_SNDBUF, &kBusySendBuffer, sizeof kBusySendBuffer);
    Epoll& epoll = WorkerPool::shared().epoll();
    if (!isClient()) {
        epoll.modify(fd(), blocked ? kBlockedEvents : kPeerEvents, key_);
        return;
    }
    // The kernel does not change an exclusive watch, nor a watch into one.
    // What comes between the two calls is not lost: adding reports what is ready by then. The main loop's watch
    // stays, so input still wakes a main thread that waits.
    epoll.remove(fd());
    epoll.add(fd(), blocked ? kBlockedEvents : kClientEvents, key_);
}

void XPCWatchedSocket::shutDown() {
    ::shutdown(fd(), SHUT_RDWR);
}

// A client trusts its service that far: to shut down first would wake both sides. Where something lies unread the
// closer keeps the descriptor, and so its place in the sets, for a while: late events find a connection that is
// not open, or look at the next socket in vain.
void XPCWatchedSocket::close(bool hungUp) {
    if (!isOpen())
        return;
    Closer::shared().end(std::move(socket_), hungUp || isClient());
    if (key_ != kNoSource)
        WorkerPool::shared().endWatch(watcher());
}

} // namespace port
