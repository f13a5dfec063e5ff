// Starting application bundles.
//
// Thread-safety: reentrant; the environment must not change meanwhile.
#pragma once

namespace port {

// Starts the application bundle at an absolute path, unless a copy of it runs already; <AppKit/AppKit.h> says how.
// True when it runs or was started, else false with errno. Blocks until that is known.
bool launchApplication(const char* fullPath);

} // namespace port
