// What is known of a volume from its file system's type and its device.
//
// Thread-safety: reentrant.
#pragma once

#include <CoreServices/CoreServices.h>

#include <cstdint>
#include <port/bsd.h>
#include <string>

namespace port {

// The extended attributes: none of the bus bits for the network; what has no device counts as internal. `devicePath`
// is the device's place in sysfs, or empty. A device that stands on others (encrypted, mapped, in an array) is
// external or removable when one of its disks is.
UInt32 volumeAttributes(const port_statfs_t& mount, const std::string& devicePath);

// The low 16 bits of the kernel's number of the type; 25461 for remote file systems in user space; never
// 65535, which means unknown.
UInt16 fileSystemIdentifier(const port_statfs_t& mount, std::uint64_t kernelType);

} // namespace port
