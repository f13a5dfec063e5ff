// The listening end of a named service: its events are new connections.
//
// Thread-safety: every function may be called from any thread that holds a reference.
#pragma once

#include "dispatch/Epoll.h"
#include "dispatch/Source.h"
#include "xpc/XPCEndpoint.h"
#include "xpc/XPCHandle.h"

#include <memory>
#include <mutex>
#include <port/UniqueFd.h>

namespace port {

class XPCConnection;

class XPCListener final : public _xpc_connection_s, private Source {
public:
    // New connections arrive on `target`. Null with errno when the name cannot be taken.
    static XPCRef<XPCListener> create(const char* name, dispatch_queue_t target);
    // The same on an endpoint that the caller has already.
    static XPCRef<XPCListener> create(std::unique_ptr<XPCEndpoint> endpoint, dispatch_queue_t target);

    void resume() override;
    void suspend() override;
    // The name is given up.
    void cancel() override;
    // A listener has no peer: messages go nowhere, handlers get "invalid", barriers run.
    void send(XPCDictionary& message) override;
    void sendWithReply(XPCDictionary& message, dispatch_queue_t queue, xpc_handler_t handler) override;
    void sendBarrier(dispatch_block_t barrier) override;

private:
    XPCListener(std::unique_ptr<XPCEndpoint> endpoint, dispatch_queue_t target);
    ~XPCListener();
    void dispose() noexcept override { delete this; }
    void enter();

    bool pin() noexcept override { return retainUnlessGone(); }
    void unpin() noexcept override { release(); }
    SourceResult ready(std::uint32_t events) override;
    void expired() override;

    UniqueFd accept();
    bool turnAway();
    void offer(UniqueFd socket);
    void introduce(XPCConnection& peer);
    void hear(); // under the lock, with an endpoint; else again in a moment
    void close();

    Epoll& epoll_; // the main loop's when new connections are for the main queue
    const bool forMain_;
    const uid_t user_; // who took the name, and whose processes are heard
    std::mutex mutex_;
    std::unique_ptr<XPCEndpoint> endpoint_;
    UniqueFd spare_; // given up to accept, and turn away, a peer when no descriptor is left
    SourceKey key_ = kNoSource;
    unsigned suspensions_ = 1;
};

} // namespace port
