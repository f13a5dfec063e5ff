#include "xpc/XPCHandle.h"

#include <utility>

namespace {

thread_local _xpc_connection_s* currentConnection = nullptr;

} // namespace

namespace port {

// A handler may enter the main loop, and another handler run inside of it: so what was current before is kept.
XPCCurrent::XPCCurrent(_xpc_connection_s* connection)
    : before_(std::exchange(currentConnection, connection)) {}

XPCCurrent::~XPCCurrent() {
    currentConnection = before_;
}

} // namespace port

_xpc_connection_s::_xpc_connection_s(dispatch_queue_t target)
    : XPCObject(XPC_TYPE_CONNECTION), queue_(*this, target) {}

_xpc_connection_s* _xpc_connection_s::from(xpc_object_t object) {
    XPCObject* const candidate = XPCObject::from(object);
    if (candidate == nullptr || candidate->type() != XPC_TYPE_CONNECTION)
        return nullptr;
    return static_cast<_xpc_connection_s*>(candidate);
}

_xpc_connection_s* _xpc_connection_s::current() {
    return currentConnection;
}

void _xpc_connection_s::setHandler(xpc_handler_t handler) {
    // The old handler is destroyed outside the lock: what it holds may call back.
    Handler replaced = std::make_shared<const xpc_handler_t>(std::move(handler));
    const std::lock_guard lock(handlerMutex_);
    handler_.swap(replaced);
}

void _xpc_connection_s::suspend() {
    queue_.suspend();
}

void _xpc_connection_s::deliver(xpc_object_t event) {
    if (!dropped_)
        call(event);
}

// The handler is called without the lock, through a share of its own: it may set another one, or cancel, and
// the one that runs stays alive.
void _xpc_connection_s::call(xpc_object_t event) {
    Handler handler;
    {
        const std::lock_guard lock(handlerMutex_);
        handler = handler_;
    }
    if (handler == nullptr || !*handler)
        return;
    const port::XPCCurrent scope(this);
    (*handler)(event);
}

void _xpc_connection_s::injectError(xpc_object_t error) {
    queue_.append(port::Task([this, error] { deliver(error); }));
}

// From any thread, once for all of them. The last task needs no memory, so the end is told even when there is
// none left. The handler goes behind the lock (`last` is older than it): what it holds may be the last
// reference to anything.
void _xpc_connection_s::finish() {
    if (finishing_.exchange(true))
        return;
    const bool mustSchedule = queue_.addLast(port::Task([this] {
        // Another thread may cancel now and drop the events: this one is delivered all the same.
        dropEvents();
        call(XPC_ERROR_CONNECTION_INVALID);
        Handler last;
        const std::lock_guard lock(handlerMutex_);
        handler_.swap(last);
    }));
    if (mustSchedule)
        queue_.schedule(port::Urgency::Soon);
}
