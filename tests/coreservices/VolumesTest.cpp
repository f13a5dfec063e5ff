#include "coreservices/Volumes.h"

#include <gtest/gtest.h>

namespace {

constexpr UInt32 kInternal = 1U << bIsOnInternalBus;
constexpr UInt32 kExternal = 1U << bIsOnExternalBus;
constexpr UInt32 kRemovable = 1U << bIsRemovable;

TEST(VolumesTest, AttributesFollowTypeBusAndMedium) {
    const struct {
        const char* type;
        const char* devicePath;
        bool removable;
        UInt32 attributes;
    } rows[] = {
        {"ext4", "/sys/devices/pci0000:00/nvme/nvme0n1/nvme0n1p2", false, kInternal},
        {"tmpfs", "", false, kInternal},
        {"overlay", "", false, kInternal},
        {"iso9660", "/sys/devices/pci0000:00/ata2/block/sr0", true, kInternal | kRemovable},
        {"fat32", "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-2/block/sdb/sdb1", true,
         kExternal | kRemovable},
        {"ext4", "/sys/devices/pci0000:00/thunderbolt0/block/sdc", false, kExternal},
        {"nfs4", "", false, 0},
        {"cifs", "", false, 0},
        {"fuse.sshfs", "", false, 0},
        {"fuseblk", "/sys/devices/pci0000:00/usb2/block/sdd1", false, kExternal},
    };
    for (const auto& row : rows)
        EXPECT_EQ(port::volumeAttributes(row.type, row.devicePath, row.removable), row.attributes)
            << row.type << " " << row.devicePath;
}

TEST(VolumesTest, IdentifiersAreNeverTheUnknownOne) {
    EXPECT_EQ(port::fileSystemIdentifier("ext4", 0xEF53), 0xEF53);
    EXPECT_EQ(port::fileSystemIdentifier("odd", 0x1234FFFF), 0xFFFE);
    EXPECT_EQ(port::fileSystemIdentifier("fuse.sshfs", 0x65735546), 25461);
}

} // namespace
