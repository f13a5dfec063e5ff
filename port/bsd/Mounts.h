// The mount table of this process.
//
// Thread-safety: reentrant.
#pragma once

#include <cstdint>
#include <port/bsd.h>

namespace port {

// Reads a mount table (in the form of /proc/self/mountinfo) from the descriptor as far as the mount with the
// id, and fills in its mount point and its source, escapes decoded, and the name of its file system ("vfat" as
// "fat32", cut to its buffer). False with errno and all names empty: ENOENT when the mount is not listed or its line
// is malformed, ENAMETOOLONG when the mount point does not fit.
bool readMount(int table, std::uint64_t id, port_statfs_t& result);

} // namespace port
