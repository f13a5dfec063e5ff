// How a program ends that has no memory left for what itself needs.
//
// Thread-safety: any thread, and a signal handler.
#pragma once

#pragma GCC visibility push(default)

// The status that it ends with; EX_OSERR of <sysexits.h>.
constexpr int PORT_STATUS_NO_MEMORY = 71;

// Writes "NAME: out of memory" to standard error, NAME being the program's, and ends the process at once with
// PORT_STATUS_NO_MEMORY. Nothing is cleaned up: clean-up wants memory, and locks that others hold.
[[noreturn]] void port_end_without_memory() noexcept;

// For std::set_terminate: an exception that nobody caught ends the program as above when it is std::bad_alloc, and
// else with "NAME: ended by an exception" and an abort.
[[noreturn]] void port_end_by_exception() noexcept;

#pragma GCC visibility pop
