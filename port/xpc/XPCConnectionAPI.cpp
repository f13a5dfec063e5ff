#include "xpc/XPCConnection.h"
#include "xpc/XPCHandle.h"
#include "xpc/XPCListener.h"

#include <port/xpc_descriptors.h>
#include <utility>
#include <xpc/xpc.h>

using port::XPCConnection;
using port::XPCDictionary;
using port::XPCListener;

namespace {

bool isUsable(const char* name) {
    return name != nullptr && *name != '\0';
}

} // namespace

// Not among the members that give references back: an analyser that sees both takes each of them for the last.
void XPCConnection::dispose() noexcept {
    delete this;
}

xpc_connection_t xpc_dictionary_get_remote_connection(xpc_object_t dictionary) {
    if (XPCDictionary* const source = XPCDictionary::from(dictionary))
        return _xpc_connection_s::from(source->remoteConnection());
    return _xpc_connection_s::current();
}

xpc_connection_t xpc_connection_create(const char* name, dispatch_queue_t queue) {
    return isUsable(name) ? XPCConnection::toService(XPCConnection::Kind::Bundled, name, queue).release()
                          : nullptr;
}

xpc_connection_t xpc_connection_create_mach_service(const char* name, dispatch_queue_t queue,
                                                    std::uint64_t flags) {
    if (!isUsable(name))
        return nullptr;
    if ((flags & XPC_CONNECTION_MACH_SERVICE_LISTENER) != 0)
        return XPCListener::create(name, queue).release();
    return XPCConnection::toService(XPCConnection::Kind::Named, name, queue).release();
}

void xpc_connection_set_event_handler(xpc_connection_t connection, xpc_handler_t handler) {
    connection->setHandler(std::move(handler));
}

void xpc_connection_resume(xpc_connection_t connection) {
    connection->resume();
}

void xpc_connection_suspend(xpc_connection_t connection) {
    connection->suspend();
}

void xpc_connection_cancel(xpc_connection_t connection) {
    connection->cancel();
}

pid_t xpc_connection_get_pid(xpc_connection_t connection) {
    return connection->peerPid();
}

void xpc_connection_send_message(xpc_connection_t connection, xpc_object_t message) {
    if (XPCDictionary* const dictionary = XPCDictionary::from(message))
        connection->send(*dictionary);
}

void xpc_connection_send_message_with_reply(xpc_connection_t connection, xpc_object_t message,
                                            dispatch_queue_t queue, xpc_handler_t handler) {
    if (XPCDictionary* const dictionary = XPCDictionary::from(message))
        connection->sendWithReply(*dictionary, queue, std::move(handler));
}

void xpc_connection_send_barrier(xpc_connection_t connection, dispatch_block_t barrier) {
    connection->sendBarrier(std::move(barrier));
}

void port_refuse_descriptors(xpc_connection_t connection) {
    if (connection != nullptr)
        connection->refuseDescriptors();
}
