// The reply handlers that a connection waits for, under the ids that their messages carried.
//
// Thread-safety: none; the connection's lock covers it.
#pragma once

#include "xpc/XPCObject.h"

#include <cstddef>
#include <cstdint>
#include <dispatch/dispatch.h>
#include <vector>
#include <xpc/xpc.h>

namespace port {

// One waiting handler and the queue on which it wants to be called, retained.
class XPCReplyHandler {
public:
    XPCReplyHandler() = default;
    // A null queue means the main queue.
    XPCReplyHandler(dispatch_queue_t queue, xpc_handler_t handler);
    XPCReplyHandler(XPCReplyHandler&& other) noexcept;
    XPCReplyHandler& operator=(XPCReplyHandler&& other) noexcept;
    XPCReplyHandler(const XPCReplyHandler&) = delete;
    XPCReplyHandler& operator=(const XPCReplyHandler&) = delete;
    ~XPCReplyHandler();

    explicit operator bool() const { return queue_ != nullptr; }
    // Puts the call in line. The connection, which may be null, is the `current` one meanwhile. To be called
    // without a lock, once. A call for which there is no memory ends the process: who waits for it would wait
    // for ever.
    void answer(XPCRef<XPCObject> connection, XPCRef<XPCObject> reply);

private:
    dispatch_queue_t queue_ = nullptr;
    xpc_handler_t handler_;
};

class XPCReplyTable {
public:
    bool isEmpty() const { return answered_ == places_.size(); }
    // The id under which the handler waits; never 0, never used twice.
    std::uint64_t add(XPCReplyHandler handler);
    // The handler, which waits no more; none when the id is unknown.
    XPCReplyHandler take(std::uint64_t id);
    // All that wait, in the order in which they were added.
    std::vector<XPCReplyHandler> takeAll();

private:
    struct Place {
        std::uint64_t id;
        XPCReplyHandler handler; // none when it is answered
    };
    void dropAnswered();

    // In the order of their ids, which are given in turn. Answered places go together, when half of them are: a
    // request that is never answered keeps one place, whatever comes behind it.
    std::vector<Place> places_;
    std::size_t answered_ = 0;
    std::uint64_t nextId_ = 1;
};

} // namespace port
