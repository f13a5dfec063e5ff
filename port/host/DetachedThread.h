// Starts a thread that nobody joins.
//
// Thread-safety: may be called from any thread.
#pragma once

namespace port {

// Runs `body(argument)`. Signals do not reach it, those excepted that a fault of the thread itself raises: they
// are the main thread's. False with errno when the system has no room for a thread.
bool startDetachedThread(void* (*body)(void* argument), void* argument);

} // namespace port
