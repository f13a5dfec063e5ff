// The socket of a connection and the epoll sets that watch it.
//
// A peer's socket is in the workers' set. A client's is in the main loop's and in the workers': the kernel wakes
// the main thread if it waits there, which then gets its reply without a change of threads, else a worker, never
// both. Output is watched for, by the workers, only while the socket takes no more.
//
// Invariants: what is in a set is open; closing takes it out of both, when the closer closes it. While it is open and
// was given a source, the pool is told that somebody has to watch.
//
// Thread-safety: the connection's lock covers it. The thread that reads the socket does so without the lock; it
// is the connection's business not to close it meanwhile.
#pragma once

#include "dispatch/Source.h"
#include "dispatch/WorkerPool.h"

#include <chrono>
#include <port/UniqueFd.h>

namespace port {

class XPCWatchedSocket {
public:
    enum class Side { Client, Peer };

    // A client's is opened later.
    explicit XPCWatchedSocket(Side side, UniqueFd socket = UniqueFd());
    XPCWatchedSocket(const XPCWatchedSocket&) = delete;
    XPCWatchedSocket& operator=(const XPCWatchedSocket&) = delete;
    ~XPCWatchedSocket();

    int fd() const { return socket_.get(); }
    bool isOpen() const { return bool(socket_); }
    // Takes no more output now; the source is told when it does.
    bool isBlocked() const { return blocked_; }

    // Who is told from now on. Once.
    void setSource(Source& source);
    // Calls the source's `expired`.
    void callAt(WorkerPool::Clock::time_point when) { WorkerPool::shared().callAt(when, key_); }
    // Begins to watch the socket, a new one if one is given; the source may be called on another thread at once.
    // False with errno when the kernel refuses.
    bool watch(UniqueFd socket = UniqueFd());
    void setBlocked(bool blocked);
    // Both sides see the end; what the other has sent can still be read.
    void shutDown();
    // `hungUp`: the other side has ended already.
    void close(bool hungUp = false);

private:
    bool isClient() const { return side_ == Side::Client; }
    WorkerPool::Watcher watcher() const;

    const Side side_;
    UniqueFd socket_;
    SourceKey key_ = kNoSource;
    bool blocked_ = false;
};

} // namespace port
