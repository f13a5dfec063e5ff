// Sleeping for a time, however many signals arrive meanwhile.
//
// Thread-safety: reentrant.
#pragma once

// Blocks the calling thread for the whole time.
void LSleepMilliseconds(unsigned int milliseconds);
