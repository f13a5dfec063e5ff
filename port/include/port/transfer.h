// Bytes to and from descriptors: `read` and `write` that no signal interrupts.
//
// Thread-safety: reentrant. All of it blocks with the file. Failures leave errno, never EINTR.
#pragma once

#include <cstddef>
#include <sys/types.h>

#pragma GCC visibility push(default)

// As `read` and `write`; a call that a signal interrupts before it moved anything is begun anew.
ssize_t port_read(int fd, void* buffer, std::size_t size);
ssize_t port_write(int fd, const void* bytes, std::size_t size);

// Writes all bytes, however many calls it takes; false when one of them fails.
bool port_write_all(int fd, const void* bytes, std::size_t size);

// Takes room on the disk for the first `size` bytes of a file, whose length stays. False with errno when there is none;
// true also for what is no file on a disk, and where the file system cannot tell.
bool port_reserve(int fd, std::size_t size);

#pragma GCC visibility pop
