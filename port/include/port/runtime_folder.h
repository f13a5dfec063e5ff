// Where this user's services have their sockets, for programs that tell a person why one is not reached.
//
// Thread-safety: reentrant; reads the environment.
#pragma once

#include <cstddef>

// Writes the folder's path, cut to `size` bytes. True when services can be reached there; false, with errno,
// when the folder is missing (ENOENT), a link or no folder (ENOTDIR), another user's (EPERM), or open to
// others (EACCES). Creates nothing.
bool port_runtime_folder(char* path, std::size_t size);
