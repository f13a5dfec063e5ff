// BSD calls that this system's libc lacks, under their own names, and the port's variants of calls whose
// structures differ (`port_` names). The former are templates: beside a function of the program's own, of the C
// library or of another library they yield to that.
//
// Thread-safety: reentrant.
#pragma once

#include <csignal>
#include <cstddef>
#include <sys/types.h>

#pragma GCC visibility push(default)

// Copies at most size - 1 bytes of `source` and terminates when size is not 0. Returns strlen(source): a
// result >= size tells that the text was cut.
template <typename = void>
std::size_t strlcpy(char* destination, const char* source, std::size_t size);

// Appends `source` to the text in `destination`, which holds `size` bytes in all. Returns the length that
// the whole text wanted; a result >= size tells that it was cut.
template <typename = void>
std::size_t strlcat(char* destination, const char* source, std::size_t size);

// Not 0 on the thread that the process began with.
template <typename = void>
int pthread_main_np();

constexpr std::size_t PORT_MOUNT_NAME_SIZE = 1024; // bytes, terminator included (MAXPATHLEN of the platform)
constexpr std::size_t PORT_TYPE_NAME_SIZE = 32;    // bytes, terminator included

struct port_statfs_t {
    char f_mntonname[PORT_MOUNT_NAME_SIZE];
    char f_mntfromname[PORT_MOUNT_NAME_SIZE]; // empty when it does not fit or is not known
    char f_fstypename[PORT_TYPE_NAME_SIZE];
};

// The volume that holds `path`: its mount point, what was mounted there (a device, or what its file system takes
// for one), and the name of the file system. 0, or -1 with errno set and all names empty. Asks the file system and
// may block with it.
int port_statfs(const char* path, port_statfs_t* result);

// Flags of `port_open`: a shared or an exclusive lock, taken as part of the open and held while the
// descriptor is open. The lock is that of `flock`.
constexpr int O_SHLOCK = 0x10000000;
constexpr int O_EXLOCK = 0x20000000;

// `open`, close-on-exec, with the two flags above. The descriptor, or -1 with errno: EWOULDBLOCK when
// somebody else holds the lock and O_NONBLOCK was given; without O_NONBLOCK it blocks until the lock is free.
//
// The lock comes first: O_TRUNC empties the file only once it is locked, a file that is made with
// O_CREAT | O_EXCL appears under its name locked, and a file that was unlinked while the lock was waited for
// is opened anew.
int port_open(const char* path, int flags, mode_t mode = 0);

// `openat`, close-on-exec. A call that a signal interrupts is begun anew, in `port_open` too.
int port_openat(int folder, const char* name, int flags, mode_t mode = 0);

// Opens the empty device as each of the descriptors 0, 1 and 2 that is not open, so that no other file becomes the
// program's standard input or output. Before anything else is opened.
void port_open_standard_descriptors();

// What a signal handler with three arguments is told.
using __siginfo = siginfo_t;

#pragma GCC visibility pop
