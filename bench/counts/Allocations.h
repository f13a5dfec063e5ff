// Counts what the program and its children take from the heap: the functions of the C library that do it are
// replaced in the program that links this.
#pragma once

#include <cstdint>

namespace counts {

// From now on, here and in processes that are forked from here.
void startAllocations();
std::uint64_t allocations();

} // namespace counts
