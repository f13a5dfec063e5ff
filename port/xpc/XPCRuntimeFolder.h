// Where the sockets of this user's services live, and under which file names.
//
// Thread-safety: reentrant; reads the environment.
#pragma once

#include <string>
#include <string_view>
#include <unistd.h>

namespace port {

// "$XDG_RUNTIME_DIR/port-xpc" when that variable is an absolute path, else "/tmp/port-xpc-UID".
std::string xpcRuntimeFolder();

// True when the folder is a folder of ours that nobody else may enter. Makes it (mode 0700) when `create` is
// set and it is missing. Else false with errno: ENOENT missing, ENOTDIR a link or no folder, EPERM another
// user's, EACCES a mode other than 0700, or what the system said.
bool xpcCheckRuntimeFolder(const std::string& folder, bool create, uid_t ourUser = ::geteuid());

// The path of a service's file: folder, name and suffix. A name with a "/" or too long for a socket address
// is replaced by as much of it as fits and a hash of the whole. Empty, with errno EINVAL or ENAMETOOLONG, for
// an empty name and for a folder that leaves no room.
std::string xpcServicePath(const std::string& folder, std::string_view name, std::string_view suffix);

} // namespace port
