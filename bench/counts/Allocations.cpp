#undef _FORTIFY_SOURCE // what is defined here the headers would make checked calls of
#include "Allocations.h"

#include <atomic>
#include <cstddef>
#include <new>
#include <sys/mman.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace counts {
namespace {

std::atomic<std::uint64_t>* pCount = nullptr; // none before it is asked for

void count() {
    if (pCount != nullptr)
        pCount->fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void startAllocations() {
    void* const page =
        mmap(nullptr, sizeof *pCount, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    pCount = page != MAP_FAILED ? new (page) std::atomic<std::uint64_t>(0) : nullptr;
}

std::uint64_t allocations() {
    return pCount != nullptr ? pCount->load() : 0;
}

} // namespace counts

#define VISIBLE [[gnu::visibility("default")]]

extern "C" {

VISIBLE void* malloc(std::size_t size) {
    counts::count();
    return __libc_malloc(size);
}

VISIBLE void* calloc(std::size_t number, std::size_t size) {
    counts::count();
    return __libc_calloc(number, size);
}

VISIBLE void* realloc(void* block, std::size_t size) {
    counts::count();
    return __libc_realloc(block, size);
}

VISIBLE void* aligned_alloc(std::size_t alignment, std::size_t size) {
    counts::count();
    return __libc_memalign(alignment, size);
}
}
