// A place of its own among the user's processes for a program that is launched, where a service manager keeps
// such places: whoever stops the launcher's unit does not meet the program.
//
// Thread-safety: reentrant; reads the environment.
#pragma once

#include <string_view>
#include <sys/types.h>

namespace port {

// Asks the user's service manager for a scope that holds the process, named after the application, and waits
// until the process is in it; up to 2 s in all. False when there is no service manager, no tool to ask it
// with, or it refuses: the process then stays where it is.
bool moveToOwnScope(pid_t process, std::string_view application);

} // namespace port
