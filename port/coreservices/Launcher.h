// Starting a program that outlives this process.
//
// Thread-safety: reentrant; the environment must not change meanwhile.
#pragma once

#include <string>
#include <vector>

namespace port {

// Starts the program in a session of its own, as nobody's child: default signals and mask, /dev/null as
// descriptor 0, 1 and 2 as they are here, no other descriptor, the home folder as working folder, and the
// environment of this process without what a service manager meant for it, with LAUNCHED_AT_LOGIN=1.
// Blocks until the program was executed. 0, or the errno value of what failed.
int launchDetached(const std::string& program, const std::string& workingFolder);

// Runs a program of the search path, the first argument, to its end: default signals and mask, /dev/null as
// descriptors 0, 1 and 2, no other descriptor. Blocks until it has ended. True when it ended with status 0.
bool runToEnd(const std::vector<std::string>& arguments);

} // namespace port
