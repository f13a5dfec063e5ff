// What connections and listeners have in common: the event handler, and the serial queue on which it runs.
//
// Thread-safety: every function may be called from any thread that holds a reference.
#pragma once

#include "dispatch/Queue.h"
#include "xpc/XPCDictionary.h"
#include "xpc/XPCObject.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <sys/types.h>
#include <xpc/xpc.h>

struct _xpc_connection_s : port::XPCObject {
public:
    // The connection behind a handle; null for null and for other objects.
    static _xpc_connection_s* from(xpc_object_t object);
    // The one whose handler, or whose reply handler, runs on this thread; null when none does.
    static _xpc_connection_s* current();

    void setHandler(xpc_handler_t handler);
    // Puts an error event in line, as if the runtime had met it.
    void injectError(xpc_object_t error);

    // From now on the peer's messages may bring none; one that does ends the connection. Before `resume`.
    void refuseDescriptors() { refusesDescriptors_ = true; }
    bool refusesDescriptors() const { return refusesDescriptors_; }

    virtual void resume() = 0;
    virtual void suspend();
    virtual void cancel() = 0;
    // 0 when there is no peer.
    virtual pid_t peerPid() const { return 0; }
    virtual void send(port::XPCDictionary& message) = 0;
    virtual void sendWithReply(port::XPCDictionary& message, dispatch_queue_t queue,
                               xpc_handler_t handler) = 0;
    virtual void sendBarrier(dispatch_block_t barrier) = 0;

protected:
    // Events run on `target`, or on the workers when that is null. Created suspended.
    explicit _xpc_connection_s(dispatch_queue_t target);
    ~_xpc_connection_s() = default;

    // Called without a lock before a turn of the queue, and when its tasks have all run.
    virtual void queueTurnBegins() {}
    virtual void queueRanEmpty() {}

    // Calls the handler, on the queue, unless events are dropped.
    void deliver(xpc_object_t event);
    // Puts the last event, "invalid", in line, once. From the time it has run, no handler is called.
    void finish();
    // From now on events in line are dropped, but for the last one.
    void dropEvents() { dropped_ = true; }

    class EventQueue final : public port::SerialQueue {
    public:
        EventQueue(_xpc_connection_s& owner, dispatch_queue_t target)
            : SerialQueue(target, 1), owner_(owner) {}
        void retain() noexcept override { owner_.retain(); }
        void release() noexcept override { owner_.release(); }

    private:
        void turnBegins() override { owner_.queueTurnBegins(); }
        void turnEnds() override { owner_.queueRanEmpty(); }
        _xpc_connection_s& owner_;
    };
    EventQueue& queue() { return queue_; }
    const EventQueue& queue() const { return queue_; }

private:
    using Handler = std::shared_ptr<const xpc_handler_t>;
    void call(xpc_object_t event);

    std::mutex handlerMutex_;
    Handler handler_;
    std::atomic<bool> dropped_{false};
    std::atomic<bool> finishing_{false};
    bool refusesDescriptors_ = false;
    EventQueue queue_;
};

namespace port {

// Makes a connection the `current` one of this thread for a scope.
class XPCCurrent {
public:
    explicit XPCCurrent(_xpc_connection_s* connection);
    XPCCurrent(const XPCCurrent&) = delete;
    XPCCurrent& operator=(const XPCCurrent&) = delete;
    ~XPCCurrent();

private:
    _xpc_connection_s* before_;
};

} // namespace port
