#include "host/Heap.h"

#include <malloc.h>

namespace port {

void giveHeapBack() {
    ::malloc_trim(0);
}

} // namespace port
