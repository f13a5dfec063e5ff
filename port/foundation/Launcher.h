// Starting a program that outlives this process.
//
// Thread-safety: reentrant; the environment must not change meanwhile.
#pragma once

#include <string>

namespace port {

// Starts the program in a session of its own, as nobody's child: default signals and mask, /dev/null as
// descriptor 0, 1 and 2 as they are here, no other descriptor, the home folder as working folder, and the
// environment of this process without what a service manager meant for it, with LAUNCHED_AT_LOGIN=1.
// Blocks until the program was executed. 0, or the errno value of what failed.
int launchDetached(const std::string& program, const std::string& workingFolder);

} // namespace port
