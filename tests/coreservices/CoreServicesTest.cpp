#include "coreservices/Volumes.h"
#include "support/TemporaryFolder.h"

#include <CoreServices/CoreServices.h>
#include <fstream>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

// folder/file, and a link to the folder.
class FileManager : public testing::Test, protected TemporaryFolder {
protected:
    FileManager() {
        fs::create_directories(root / "folder");
        std::ofstream(root / "folder/file").put('x');
        fs::create_symlink("folder", root / "link");
    }
};

OSStatus makeRef(const std::string& path, FSRef& ref, Boolean* isFolder = nullptr) {
    return FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &ref, isFolder);
}

std::string pathOf(const FSRef& ref, std::size_t size = kPortPathSize) {
    UInt8 path[kPortPathSize] = "?";
    const OSStatus status = FSRefMakePath(&ref, path, static_cast<UInt32>(size));
    EXPECT_EQ(status, path[0] != 0 ? OSStatus{noErr} : pathTooLongErr);
    return reinterpret_cast<const char*>(path);
}

FSCatalogInfo infoOf(const std::string& path) {
    FSRef ref;
    FSCatalogInfo info = {};
    EXPECT_EQ(makeRef(path, ref), noErr) << path;
    EXPECT_EQ(FSGetCatalogInfo(&ref, ~0U, &info, nullptr, nullptr, nullptr), noErr) << path;
    return info;
}

TEST_F(FileManager, ReferencesFollowLinksToExistingObjects) {
    FSRef ref;
    Boolean isFolder = 9;
    ASSERT_EQ(makeRef(root / "link/../link/file", ref, &isFolder), noErr);
    EXPECT_EQ(pathOf(ref), root / "folder/file");
    EXPECT_FALSE(isFolder);
    ASSERT_EQ(makeRef(root / "link", ref, &isFolder), noErr);
    EXPECT_TRUE(isFolder);
    EXPECT_EQ(makeRef(root / "nothing", ref), fnfErr);
    const std::string folder = root / "folder";
    EXPECT_EQ(pathOf(ref, folder.size() + 1), folder); // a failure leaves the reference
    EXPECT_EQ(pathOf(ref, folder.size()), "");
    fs::rename(folder, root / "moved");
    EXPECT_EQ(FSGetCatalogInfo(&ref, 0, nullptr, nullptr, nullptr, nullptr), fnfErr);
}

TEST_F(FileManager, NodeIdsOfWhatIsGoneAreUnknown) {
    const FSCatalogInfo file = infoOf(root / "folder/file");
    EXPECT_EQ(file.nodeFlags, 0);
    EXPECT_EQ(infoOf(root / "folder").nodeFlags, kFSNodeIsDirectoryMask);
    EXPECT_NE(infoOf("/proc").volume, file.volume);
    Str255 name = {};
    CInfoPBRec block = {};
    block.dirInfo = {name, 0, -1, static_cast<SInt32>(file.parentDirID), 0};
    ASSERT_EQ(PBGetCatInfoSync(&block), noErr);
    fs::rename(root / "folder", root / "moved");
    for (const SInt32 unknown : {block.dirInfo.ioDrDirID, -1, 0, 1, 1 << 30}) {
        block.dirInfo.ioDrDirID = unknown;
        EXPECT_EQ(PBGetCatInfoSync(&block), fnfErr) << unknown;
    }
    EXPECT_EQ(infoOf(root / "moved/file").nodeID, file.nodeID);
}

TEST(VolumesTest, AttributesFollowTypeBusAndMedium) {
    constexpr UInt32 internal = 1U << bIsOnInternalBus;
    constexpr UInt32 external = 1U << bIsOnExternalBus;
    constexpr UInt32 removable = 1U << bIsRemovable;
    const std::tuple<const char*, const char*, bool, UInt32> rows[] = {
        {"ext4", "/sys/devices/pci0000:00/nvme/nvme0n1/nvme0n1p2", false, internal},
        {"iso9660", "/sys/devices/pci0000:00/ata2/block/sr0", true, internal | removable},
        {"fat32", "/sys/devices/pci0000:00/usb1/1-2/block/sdb/sdb1", true, external | removable},
        {"ext4", "/sys/devices/pci0000:00/thunderbolt0/block/sdc", false, external},
        {"nfs4", "", true, 0},
        {"fuse.sshfs", "", false, 0}};
    for (const auto& [type, device, isRemovable, attributes] : rows)
        EXPECT_EQ(port::volumeAttributes(type, device, isRemovable), attributes) << type << " " << device;
    EXPECT_EQ(port::fileSystemIdentifier("odd", 0x1234FFFF), 0xFFFE); // never the unknown one
    EXPECT_EQ(port::fileSystemIdentifier("fuse.sshfs", 0x65735546), 25461);
}

} // namespace
