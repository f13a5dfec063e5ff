// The heap of a process that lives long and has little to do.
//
// Thread-safety: `main`, before there are threads.
#pragma once

#pragma GCC visibility push(default)

// All threads share one heap from now on: what one of them has freed the others use, and the whole of it can be given
// back to the system. Else each thread has its own, which goes faster where many allocate at once.
void port_share_heap();

#pragma GCC visibility pop
