// Connections over which no descriptor is to come.
//
// Thread-safety: before the connection is resumed, any thread.
#pragma once

#include <xpc/xpc.h>

#pragma GCC visibility push(default)

// A message or reply of the peer that holds a descriptor ends the connection; large values, which travel beside
// their message, are taken as before. Null is ignored.
void port_refuse_descriptors(xpc_connection_t connection);

#pragma GCC visibility pop
