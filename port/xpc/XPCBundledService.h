// Services that come inside the main application's bundle, as Contents/XPCServices/NAME.xpc: started by the
// application when it first needs them, with the socket of the name in their hands.
//
// Thread-safety: reentrant; the environment is read.
#pragma once

#include "xpc/XPCEndpoint.h"

#include <memory>
#include <string>

namespace port {

// Starts the bundled service of that name. True when it runs, or is being started by somebody else: a
// connection will soon succeed. False when the main bundle has no such service or it cannot be started.
bool xpcLaunchBundled(const std::string& name);

// The endpoint that this process, a bundled service, serves: the one that its launcher has handed over, else
// that of its own name. Null with errno when it cannot be had.
std::unique_ptr<XPCEndpoint> xpcOwnEndpoint();

} // namespace port
