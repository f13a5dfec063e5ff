// The processes of a helper application in this login.
//
// Thread-safety: reentrant; reads the environment.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "servicemanagement/HelperBundle.h"

namespace port {

struct HelperProcess {
    pid_t process;
    std::string bundle; // that it was started from
};

// Those that run out of a bundle with that identifier, or, where a bundle is gone, out of that of the program that the
// entry starts (which may be empty), and see the same runtime folder as this process: another login of the user, or a
// home made for a trial, has its own.
std::vector<HelperProcess> runningHelpers(const std::string& identifier, const std::string& entryProgram);

// Whether the process runs this very program, not one that has its place by now.
bool runsProgram(const HelperProcess& helper, const std::string& program);

// Asks the process to end, kills it after 6 s, and waits for its end. False with errno when it is there still.
bool endHelper(const HelperProcess& helper);

// Whether somebody listens under the service's name: 1, 0, or -1 with errno when that cannot be found out.
int isServed(const std::string& service);

// Starts the helper, and waits up to 5 s until it serves. False with errno, ETIMEDOUT for one that does not.
bool startHelper(const HelperBundle& bundle, const std::string& service);

} // namespace port
