#include "dispatch/MainLoop.h"
#include "xpc/XPCConnection.h"
#include "xpc/XPCHandle.h"

#include <port/seams.h>

bool port_main_queue_drain(int milliseconds) {
    return port::MainLoop::shared().runOnce(milliseconds);
}

void port_set_raw_peer_pid(pid_t pid) {
    port::XPCConnection::forcePid(pid);
}

void port_inject_error_event(xpc_connection_t connection, xpc_object_t error) {
    connection->injectError(error);
}
