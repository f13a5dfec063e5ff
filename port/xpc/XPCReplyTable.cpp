#include "xpc/XPCReplyTable.h"

#include "dispatch/Queue.h"
#include "xpc/XPCHandle.h"

#include <algorithm>
#include <new>
#include <port/no_memory.h>
#include <utility>

namespace port {
namespace {

constexpr std::size_t kAnsweredPlaces = 64; // worth a move of what is behind them

struct Answer {
    XPCRef<XPCObject> connection;
    XPCRef<XPCObject> reply;
    xpc_handler_t handler;

    // On the handler's queue, mostly the main one. Both references live until the handler has returned.
    void operator()() {
        if (XPCDictionary* const dictionary = XPCDictionary::from(reply.get()))
            dictionary->setRemoteConnection(connection.get());
        const XPCCurrent scope(_xpc_connection_s::from(connection.get()));
        handler(reply.get());
    }
};

} // namespace

XPCReplyHandler::XPCReplyHandler(dispatch_queue_t queue, xpc_handler_t handler)
    : queue_(queue != nullptr ? queue : dispatch_get_main_queue()), handler_(std::move(handler)) {
    queue_->retain();
}

XPCReplyHandler::XPCReplyHandler(XPCReplyHandler&& other) noexcept
    : queue_(std::exchange(other.queue_, nullptr)), handler_(std::move(other.handler_)) {}

XPCReplyHandler& XPCReplyHandler::operator=(XPCReplyHandler&& other) noexcept {
    std::swap(queue_, other.queue_);
    std::swap(handler_, other.handler_);
    return *this;
}

XPCReplyHandler::~XPCReplyHandler() {
    if (queue_ != nullptr)
        queue_->release();
}

// Without a lock: the queue takes its own, and may wake a thread that takes the connection's next.
void XPCReplyHandler::answer(XPCRef<XPCObject> connection, XPCRef<XPCObject> reply) {
    if (!handler_)
        return;
    try {
        queue_->append(Task(Answer{std::move(connection), std::move(reply), std::move(handler_)}));
    } catch (const std::bad_alloc&) {
        port_end_without_memory();
    }
}

std::uint64_t XPCReplyTable::add(XPCReplyHandler handler) {
    places_.push_back({nextId_, std::move(handler)});
    return nextId_++;
}

// The id comes from the peer: one that is unknown, or was answered before, gives an empty handler.
XPCReplyHandler XPCReplyTable::take(std::uint64_t id) {
    const auto place = std::ranges::lower_bound(places_, id, {}, &Place::id);
    if (place == places_.end() || place->id != id || !place->handler)
        return {};
    XPCReplyHandler handler = std::move(place->handler);
    ++answered_;
    if (isEmpty() || (answered_ >= kAnsweredPlaces && answered_ * 2 >= places_.size()))
        dropAnswered();
    return handler;
}

void XPCReplyTable::dropAnswered() {
    std::erase_if(places_, [](const Place& place) { return !place.handler; });
    answered_ = 0;
}

std::vector<XPCReplyHandler> XPCReplyTable::takeAll() {
    dropAnswered();
    std::vector<XPCReplyHandler> handlers;
    handlers.reserve(places_.size());
    for (Place& place : places_)
        handlers.push_back(std::move(place.handler));
    places_.clear();
    return handlers;
}

} // namespace port
