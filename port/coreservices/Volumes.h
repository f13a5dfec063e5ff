// What is known of a volume from its file system's type and its device.
//
// Thread-safety: pure functions.
#pragma once

#include <CoreServices/CoreServices.h>

#include <cstdint>
#include <string_view>

namespace port {

// Types as the system's table of mounts calls them.
bool isNetworkType(std::string_view type);

// The extended attributes: none of the bus bits for the network; what has no device counts as internal.
// `devicePath` is the device's place in sysfs, `removable` whether its disk can be taken out.
UInt32 volumeAttributes(std::string_view type, std::string_view devicePath, bool removable);

// The low 16 bits of the kernel's number of the type; 25461 for remote file systems in user space; never
// 65535, which means unknown.
UInt16 fileSystemIdentifier(std::string_view type, std::uint64_t kernelType);

} // namespace port
