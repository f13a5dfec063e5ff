// Where this user's services have their sockets, and who listens there, for programs that tell a person why one
// is not reached.
//
// Thread-safety: reentrant; reads the environment.
#pragma once

#include <cstddef>
#include <sys/types.h>

// Writes the folder's path, cut to `size` bytes. True when services can be reached there; false, with errno,
// when the folder is missing (ENOENT), a link or no folder (ENOTDIR), another user's (EPERM), or open to
// others (EACCES). Creates nothing.
bool port_runtime_folder(char* path, std::size_t size);

// The process that made the socket of that service listen, found out by connecting to it; 0 when it lives in
// another pid namespace. -1 with errno: ENOENT when there is no socket, ECONNREFUSED when nobody listens any more,
// or what the folder or the system said.
pid_t port_service_process(const char* name);
