#include "coreservices/NodeTable.h"
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

TEST_F(FileManager, CopiesAnObjectAndReplacesAnotherOnlyWhenItIsTold) {
    FSRef file, folder, copy;
    ASSERT_TRUE(makeRef(root / "folder/file", file) == noErr && makeRef(root, folder) == noErr);
    EXPECT_EQ(FSCopyObjectSync(&file, &folder, CFSTR("copy"), &copy, kFSFileOperationDefaultOptions), noErr);
    EXPECT_EQ(pathOf(copy), root / "copy");
    const auto again = [&](UInt32 options) {
        return FSCopyObjectSync(&file, &folder, CFSTR("copy"), nullptr, options);
    };
    EXPECT_TRUE(again(kFSFileOperationDefaultOptions) == dupFNErr &&
                again(kFSFileOperationOverwrite) == noErr);
    EXPECT_EQ(FSCopyObjectSync(&folder, &folder, CFSTR("copy"), nullptr, 0), paramErr);
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
    EXPECT_EQ(infoOf(root / "moved").nodeID, file.parentDirID);
}

TEST_F(FileManager, FoldersAreNumberedAndForgottenInTheirTurn) {
    const auto way = std::distance(root.begin(), root.end()); // to one folder in ours
    port::NodeTable table(static_cast<std::size_t>(way));
    fs::create_directory(root / "other");
    port::CatalogEntry folder, entry;
    EXPECT_EQ(table.find((root / "folder").c_str(), folder), noErr);
    EXPECT_EQ(table.find((root / "folder/file").c_str(), entry), noErr);
    EXPECT_TRUE(entry.id == 0 && entry.parent == folder.id && entry.name == "file");
    EXPECT_TRUE(table.find((root / "other").c_str(), entry) == noErr && entry.parent == folder.parent);
    EXPECT_EQ(table.find(folder.id, entry), fnfErr);
    EXPECT_TRUE(table.find((root / "folder").c_str(), entry) == noErr && entry.id != folder.id);
    EXPECT_TRUE(table.find(entry.id, folder) == noErr && folder.name == "folder");
}

TEST_F(FileManager, AttributesOfVolumesFollowTypeBusAndMedium) {
    constexpr UInt32 internal = 1U << bIsOnInternalBus;
    constexpr UInt32 external = 1U << bIsOnExternalBus;
    constexpr UInt32 removable = 1U << bIsRemovable;
    for (const char* device : {"pci/nvme0n1/p2", "pci/sr0", "pci/usb1/sdb/sdb1", "pci/thunderbolt0/sdc",
                               "dm-0/slaves", "dm-1/slaves"})
        fs::create_directories(root / device);
    for (const char* disk : {"pci/sr0", "pci/usb1/sdb"})
        std::ofstream(root / disk / "removable") << 1;
    fs::create_symlink("../../pci/usb1/sdb/sdb1", root / "dm-0/slaves/sdb1"); // encrypted
    fs::create_symlink("../../pci/nvme0n1/p2", root / "dm-1/slaves/p2");      // and in an array
    fs::create_symlink("../../dm-0", root / "dm-1/slaves/dm-0");
    const std::tuple<port_statfs_t, const char*, UInt32> rows[] = {
        {{"", "", "ext4"}, "pci/nvme0n1/p2", internal},
        {{"", "", "iso9660"}, "pci/sr0", internal | removable},
        {{"", "", "fat32"}, "pci/usb1/sdb/sdb1", external | removable},
        {{"", "", "ext4"}, "pci/thunderbolt0/sdc", external},
        {{"", "", "btrfs"}, "dm-1", external | removable},
        {{"", "a:b", "fuse.mergerfs"}, "", internal},
        {{"", "tag", "virtiofs"}, "pci/sr0", 0},
        {{"", "h:/v", "fuse.glusterfs"}, "", 0},
        {{"", "https://h/x", "fuse"}, "", 0}};
    for (const auto& [mount, device, attributes] : rows)
        EXPECT_EQ(port::volumeAttributes(mount, *device != 0 ? root / device : ""), attributes)
            << mount.f_fstypename << " " << device;
    EXPECT_EQ(port::fileSystemIdentifier({"", "", "odd"}, 0x1234FFFF), 0xFFFE); // never the unknown one
    EXPECT_EQ(port::fileSystemIdentifier({"", "", "fuse.sshfs"}, 0x65735546), 25461);
}

} // namespace
