// Seams for programs without a main loop, and for tests: the real code paths, with inputs that can be
// replaced. Nothing here is called by the library or the helper.
#pragma once

#include <sys/types.h>
#include <xpc/xpc.h>

// Serves the main queue and the descriptors of the main loop on the calling thread until it has handled
// something, or `milliseconds` have passed (-1: no limit, 0: only what is ready now). True when anything was
// handled.
bool port_main_queue_drain(int milliseconds);

// The peer id that `xpc_connection_get_pid` reports, unfolded, for the connections accepted from now on;
// -1 returns to the real one.
void port_set_raw_peer_pid(pid_t pid);

// Delivers an error object to a connection's or a listener's handler, as the runtime would.
void port_inject_error_event(xpc_connection_t connection, xpc_object_t error);
