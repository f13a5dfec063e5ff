// Sleeping for a time, however many signals arrive meanwhile.
//
// Thread-safety: reentrant.
#pragma once

#pragma GCC visibility push(default)

// Blocks the calling thread for the whole time.
void LSleepMilliseconds(unsigned int milliseconds);

#pragma GCC visibility pop
