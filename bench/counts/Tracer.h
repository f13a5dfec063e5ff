// Counts the system calls of a piece of work, of all its threads and of the processes that it makes, as a debugger
// does: a plain user may do that to children.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>

namespace counts {

struct Total {
    std::uint64_t calls = 0;
    std::uint64_t syncs = 0; // of them: fsync, fdatasync
    std::uint64_t allocations = 0;
};

// This machine does not let a process be traced.
struct Untraceable : std::runtime_error {
    using runtime_error::runtime_error;
};

// Runs the work in a process of its own. Work that throws, is killed or lasts longer than a minute is told by
// std::runtime_error.
Total trace(const std::function<void()>& work);

} // namespace counts
