#include "xpc/XPCConnection.h"
#include "xpc/XPCHandle.h"

#include <port/internal/seams_xpc.h>

void port_set_raw_peer_pid(pid_t pid) {
    port::XPCConnection::forcePid(pid);
}

void port_inject_error_event(xpc_connection_t connection, xpc_object_t error) {
    connection->injectError(error);
}
