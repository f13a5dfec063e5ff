// Seams of the XPC runtime for tests: the real code paths, with inputs that can be replaced. Nothing here is
// called by the library or the helper.
#pragma once

#include <sys/types.h>
#include <xpc/xpc.h>

// The peer id that `xpc_connection_get_pid` reports, unfolded, for accepted connections; -1 returns to the real one.
void port_set_raw_peer_pid(pid_t pid);

// Delivers an error object to a connection's or a listener's handler, as the runtime would.
void port_inject_error_event(xpc_connection_t connection, xpc_object_t error);
