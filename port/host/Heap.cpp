#include "host/Heap.h"

#include <malloc.h>
#include <port/heap.h>

namespace port {

void giveHeapBack() {
    ::malloc_trim(0);
}

} // namespace port

// Of a heap that is not the first the runtime keeps some megabytes, whatever it is asked to give back.
void port_share_heap() {
    ::mallopt(M_ARENA_MAX, 1);
}
