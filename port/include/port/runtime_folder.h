// The folder of this user's services: where they have their sockets and who listens there, for programs that tell
// a person why one is not reached, and a place for locks between the user's processes.
//
// Thread-safety: reentrant; reads the environment.
#pragma once

#include <cstddef>
#include <sys/types.h>

#pragma GCC visibility push(default)

// Writes the folder's path, cut to `size` bytes. True when services can be reached there; false, with errno,
// when the folder is missing (ENOENT), a link or no folder (ENOTDIR), another user's (EPERM), or open to
// others (EACCES). Creates nothing.
bool port_runtime_folder(char* path, std::size_t size);

// The process that made the socket of that service listen, found out by connecting to it; 0 when it lives in
// another pid namespace. -1 with errno: ENOENT when there is no socket, ECONNREFUSED when nobody listens any more,
// or what the folder or the system said.
pid_t port_service_process(const char* name);

// Opens the file of that name in the folder, both made when they are missing, and takes its lock (that of
// `flock`), which is held while the descriptor is open and given back by the death of its holder. Waits up to
// `milliseconds` for another holder. The descriptor, close-on-exec, or -1 with errno: EWOULDBLOCK when the
// lock stayed with somebody else, else why the folder or the file cannot be used.
int port_lock_in_runtime_folder(const char* name, unsigned milliseconds);

#pragma GCC visibility pop
