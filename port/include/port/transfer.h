// Bytes to and from descriptors: `read` and `write` that no signal interrupts, and a copy from file to file
// that does not pass through the process.
//
// Thread-safety: reentrant. All of it blocks with the file. Failures leave errno, never EINTR.
#pragma once

#include <cstddef>
#include <sys/types.h>

// As `read` and `write`; a call that a signal interrupts before it moved anything is begun anew.
ssize_t port_read(int fd, void* buffer, std::size_t size);
ssize_t port_write(int fd, const void* bytes, std::size_t size);

// Writes all bytes, however many calls it takes; false when one of them fails.
bool port_write_all(int fd, const void* bytes, std::size_t size);

// Moves at most `size` bytes from where one file stands to where another one does, both go forward. Returns how
// many; 0 at the end of the source, and -1 also when the kernel cannot copy between the two.
ssize_t port_copy_range(int from, int to, std::size_t size);
