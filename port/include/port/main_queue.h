// The main queue of a program that has no main loop of its own.
//
// Thread-safety: for the main thread.
#pragma once

#pragma GCC visibility push(default)

// Serves the main queue and the descriptors of the main loop on the calling thread until it has handled
// something, or `milliseconds` have passed (-1: no limit, 0: only what is ready now). True when anything was
// handled.
bool port_main_queue_drain(int milliseconds);

#pragma GCC visibility pop
