// Starting a program that outlives this process.
//
// Thread-safety: reentrant; the environment must not change meanwhile.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace port {

struct LaunchOptions {
    std::string_view application; // names the scope
    const char* mark;             // "NAME=value", for the environment: who has launched it
    bool keepsTerminal = true;    // as an output
};

// Starts the program in a session of its own, as nobody's child, and in a scope of its own, named after the
// application, where the user's service manager keeps such: default signals and mask, /dev/null as descriptor
// 0, 1 and 2 as they are here unless they are missing, a pipe, a socket or a terminal that is not kept (/dev/null
// then), no other descriptor, the home folder as working folder, and the environment of this process without what a
// service manager or a launcher meant for it, with the mark. Blocks until the program was executed, for the service
// manager up to 2 s. 0, or the errno value of what failed.
int launchDetached(const std::string& program, const std::string& workingFolder, const LaunchOptions& kind);

// Runs a program of the search path, the first argument, to its end: default signals and mask, /dev/null as
// descriptors 0, 1 and 2, no other descriptor. Blocks until it has ended, which it is made to when the time is
// over. True when it ended with status 0.
bool runToEnd(const std::vector<std::string>& arguments, std::chrono::milliseconds limit);

} // namespace port
