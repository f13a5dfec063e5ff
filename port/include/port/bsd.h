// BSD calls that this system's libc lacks, under their own names, and the port's variants of calls whose
// structures differ (`port_` names).
//
// Thread-safety: reentrant.
#pragma once

#include <cstddef>

// Copies at most size - 1 bytes of `source` and terminates when size is not 0. Returns strlen(source): a
// result >= size tells that the text was cut.
std::size_t strlcpy(char* destination, const char* source, std::size_t size);

// Appends `source` to the text in `destination`, which holds `size` bytes in all. Returns the length that
// the whole text wanted; a result >= size tells that it was cut.
std::size_t strlcat(char* destination, const char* source, std::size_t size);

constexpr std::size_t PORT_MOUNT_NAME_SIZE = 1024; // bytes, terminator included (MAXPATHLEN of the platform)
constexpr std::size_t PORT_TYPE_NAME_SIZE = 16;    // bytes, terminator included (MFSTYPENAMELEN)

struct port_statfs_t {
    char f_mntonname[PORT_MOUNT_NAME_SIZE];
    char f_fstypename[PORT_TYPE_NAME_SIZE];
};

// The volume that holds `path`: its mount point and the name of its file system. 0, or -1 with errno set and
// both names empty. Asks the file system and may block with it.
int port_statfs(const char* path, port_statfs_t* result);
