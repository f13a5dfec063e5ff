// The heap of the process as the system sees it.
//
// Thread-safety: may be called from any thread.
#pragma once

namespace port {

// Gives back to the system what the heap holds free, of every thread: the pages that a burst of work has left
// behind. Takes as long as there is much of it.
void giveHeapBack();

} // namespace port
