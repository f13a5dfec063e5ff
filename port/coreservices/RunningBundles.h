// The processes of this user that run out of an application bundle.
//
// Thread-safety: reentrant. One pass over the process table, one system call a process and one more for a
// match.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

namespace port {

// Calls `visit` with each process whose executable is X.app/Contents/MacOS/..., and the path of its X.app,
// the newest first, until it answers false.
void forEachRunningBundle(const std::function<bool(pid_t process, const std::string& bundle)>& visit);

} // namespace port
