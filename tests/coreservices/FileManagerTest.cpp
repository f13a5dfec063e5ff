#include <CoreServices/CoreServices.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <port/seams_coreservices.h>
#include <string>

namespace {

namespace fs = std::filesystem;

// A folder of its own for each test, named without links.
class FileManager : public testing::Test {
protected:
    FileManager() {
        char pattern[] = "/tmp/coreservices-XXXXXX";
        root = fs::canonical(mkdtemp(pattern));
    }
    ~FileManager() override { fs::remove_all(root); }

    std::string add(const std::string& name) const {
        fs::create_directories((root / name).parent_path());
        std::ofstream(root / name).put('x');
        return root / name;
    }

    fs::path root;
};

OSStatus makeRef(const std::string& path, FSRef& ref, Boolean* isFolder = nullptr) {
    return FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &ref, isFolder);
}

std::string pathOf(const FSRef& ref, UInt32 size = kPortPathSize) {
    UInt8 path[kPortPathSize] = "?";
    const OSStatus status = FSRefMakePath(&ref, path, size);
    EXPECT_EQ(status, path[0] != 0 ? OSStatus{noErr} : pathTooLongErr);
    return reinterpret_cast<const char*>(path);
}

std::string text(const unsigned char* pascal) {
    return {reinterpret_cast<const char*>(pascal + 1), pascal[0]};
}

FSCatalogInfo infoOf(const std::string& path) {
    FSRef ref;
    FSCatalogInfo info = {};
    EXPECT_EQ(makeRef(path, ref), noErr) << path;
    EXPECT_EQ(FSGetCatalogInfo(&ref, ~0U, &info, nullptr, nullptr, nullptr), noErr) << path;
    return info;
}

TEST_F(FileManager, ReferencesFollowLinksToExistingObjects) {
    const std::string file = add("folder/file");
    fs::create_symlink("folder", root / "link");
    FSRef ref;
    Boolean isFolder = 9;
    ASSERT_EQ(makeRef(root / "link/../link/file", ref, &isFolder), noErr);
    EXPECT_EQ(pathOf(ref), file);
    EXPECT_FALSE(isFolder);
    ASSERT_EQ(makeRef(root / "link", ref, &isFolder), noErr);
    EXPECT_TRUE(isFolder);
    EXPECT_EQ(makeRef(root / "nothing", ref), fnfErr);
    EXPECT_EQ(pathOf(ref), root / "folder");
    const UInt32 length = static_cast<UInt32>(pathOf(ref).size());
    EXPECT_EQ(pathOf(ref, length + 1), root / "folder");
    EXPECT_EQ(pathOf(ref, length), "");
}

TEST_F(FileManager, NodeIdsNameObjectsAndTheirParents) {
    const FSCatalogInfo top = infoOf("/");
    EXPECT_EQ(top.nodeID, 2U);
    EXPECT_EQ(top.parentDirID, 1U);
    EXPECT_EQ(top.volume, -100);
    const FSCatalogInfo file = infoOf(add("folder/file"));
    const FSCatalogInfo folder = infoOf(root / "folder");
    EXPECT_EQ(file.parentDirID, folder.nodeID);
    EXPECT_EQ(file.nodeFlags, 0);
    EXPECT_EQ(folder.nodeFlags, kFSNodeIsDirectoryMask);
    EXPECT_EQ(folder.volume, file.volume);
    EXPECT_NE(infoOf("/proc").volume, file.volume);
    EXPECT_EQ(infoOf(root / "folder/file").nodeID, file.nodeID);
    fs::rename(root / "folder", root / "renamed");
    EXPECT_EQ(infoOf(root / "renamed/file").nodeID, file.nodeID);
}

TEST_F(FileManager, MovedObjectsAreNotFound) {
    FSRef ref;
    ASSERT_EQ(makeRef(add("folder/file"), ref), noErr);
    Str255 name = {};
    CInfoPBRec block = {};
    block.dirInfo = {name, 0, -1, static_cast<SInt32>(infoOf(root / "folder").nodeID), 0};
    ASSERT_EQ(PBGetCatInfoSync(&block), noErr);
    EXPECT_EQ(text(name), "folder");
    EXPECT_EQ(block.dirInfo.ioDrParID, static_cast<SInt32>(infoOf(root).nodeID));
    fs::rename(root / "folder", root / "moved");
    EXPECT_EQ(PBGetCatInfoSync(&block), fnfErr);
    EXPECT_EQ(FSGetCatalogInfo(&ref, 0, nullptr, nullptr, nullptr, nullptr), fnfErr);
    for (const SInt32 unknown : {-1, 0, 1, 1 << 30}) {
        block.dirInfo.ioDrDirID = unknown;
        EXPECT_EQ(PBGetCatInfoSync(&block), fnfErr) << unknown;
    }
}

TEST(SystemVersion, Texts) {
    const std::pair<const char*, std::pair<SInt32, SInt32>> rows[] = {
        {"10.6", {10, 6}}, {"266.7", {266, 7}}, {"fail", {-7, -7}}, {"10", {-7, -7}},
        {"10.", {-7, -7}}, {"", {-7, -7}},      {"-1.2", {-7, -7}}, {"10.6.8", {-7, -7}}};
    for (const auto& [version, expected] : rows) {
        port_set_system_version(version);
        std::pair<SInt32, SInt32> found(-7, -7);
        EXPECT_EQ(Gestalt(gestaltSystemVersionMajor, &found.first) == noErr, expected.first > 0) << version;
        Gestalt(gestaltSystemVersionMinor, &found.second);
        EXPECT_EQ(found, expected) << version;
    }
    port_set_system_version(nullptr);
    SInt32 major = 0;
    EXPECT_EQ(Gestalt(0x73797333, &major), gestaltUndefSelectorErr);
    EXPECT_EQ(Gestalt(gestaltSystemVersionMajor, &major), noErr);
    EXPECT_EQ(major, 10);
}

} // namespace
