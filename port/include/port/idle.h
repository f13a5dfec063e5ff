// The end of a service that nobody uses.
//
// Thread-safety: the main thread, before it serves.
#pragma once

#pragma GCC visibility push(default)

// Calls `isIdle` from the main loop each time that for so many seconds, and at most twice as many, no peer has been
// connected to a service of this process. False with errno when the system has no timer for it.
bool port_when_idle(unsigned seconds, void (*isIdle)());

#pragma GCC visibility pop
