#include "base/LIdentity.h"
#include "base/LLimits.h"
#include "files/LFile.h"
#include "support/Bundle.h"
#include "support/Child.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <port/bsd.h>

static std::map<std::string, std::string> volumes; // the types of what is mounted from now on
static std::promise<void> hangs, answers;          // one of the type "hung"
static const char* szProgram = nullptr;            // where this program is from now on

extern "C" int __real__Z11port_statfsPKcP13port_statfs_t(const char* path, port_statfs_t* result);
extern "C" int __wrap__Z11port_statfsPKcP13port_statfs_t(const char* path, port_statfs_t* result);
int __wrap__Z11port_statfsPKcP13port_statfs_t(const char* path, port_statfs_t* result) {
    const auto volume = std::find_if(volumes.begin(), volumes.end(), [=](const auto& one) {
        return std::string(path).starts_with(one.first);
    });
    if (volume == volumes.end())
        return __real__Z11port_statfsPKcP13port_statfs_t(path, result);
    *result = {};
    if (volume->second == "hung") {
        volumes.erase(volume);
        hangs.set_value();
        answers.get_future().wait();
        return -1;
    }
    volume->first.copy(result->f_mntonname, sizeof result->f_mntonname - 1);
    volume->second.copy(result->f_fstypename, sizeof result->f_fstypename - 1);
    return 0;
}

extern "C" ssize_t __real_readlinkat(int folder, const char* name, char* text, std::size_t size);
extern "C" ssize_t __wrap_readlinkat(int folder, const char* name, char* text, std::size_t size);
ssize_t __wrap_readlinkat(int folder, const char* name, char* text, std::size_t size) {
    if (szProgram == nullptr)
        return __real_readlinkat(folder, name, text, size);
    return *szProgram == '\0' ? -1 : static_cast<ssize_t>(std::string(szProgram).copy(text, size));
}

namespace {

namespace fs = std::filesystem;

// A private home, without any of the variables that name other folders.
class PlacesTest : public testing::Test, protected TemporaryFolder {
protected:
    void SetUp() override {
        for (const char* szName : {"XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "CFFIXED_USER_HOME"})
            unsetenv(szName);
        setenv("HOME", sHome.c_str(), 1);
    }
    template <typename Getter>
    static std::string Ask(Getter getter) {
        char szOut[LPathBufferSize] = "untouched";
        getter(szOut);
        return szOut;
    }
    const std::string sHome = root;
};

TEST_F(PlacesTest, FollowTheDesktopAndFallBackBelowTheHome) {
    EXPECT_EQ(Ask(LFile::GetTempFolder), sHome + "/.cache");
    EXPECT_EQ(Ask(LFile::GetUserMusicFolder), sHome + "/Music");
    EXPECT_TRUE(fs::is_directory(sHome + "/Music"));

    fs::create_directory(sHome + "/.config");
    std::ofstream(sHome + "/.config/user-dirs.dirs")
        << "# comment\nXDG_MUSIC_DIR=\"$HOME/Tunes\"\n"
        << "XDG_VIDEOS_DIR=\"/srv/films\"\nXDG_PICTURES_DIR=\"$HOME/\"\n";
    EXPECT_EQ(Ask(LFile::GetUserMusicFolder), sHome + "/Tunes");
    EXPECT_EQ(Ask(LFile::GetUserVideoFolder), "/srv/films");
    EXPECT_EQ(Ask(LFile::GetUserPicturesFolder), sHome + "/Pictures");
    setenv("CFFIXED_USER_HOME", "/nowhere", 1);
    EXPECT_EQ(Ask(LFile::GetUserDocumentsFolder), "/nowhere/Documents"); // cannot be made
    EXPECT_NE(Ask(LFile::GetUserFolderNonSandboxed), "/nowhere");
}

TEST_F(PlacesTest, MakeTheLibrarysOwnFolders) {
    const std::string sData = sHome + "/.local/share/loginhelper";
    char szOut[LPathBufferSize];
    LFile::GetUserDataFolderAppSubFolder("module", szOut);
    EXPECT_EQ(szOut, sData + "/module");
    LFile::GetSharedDataFolderAppSubFolder("all", szOut);
    EXPECT_EQ(szOut, sData + "/Shared/all");
    EXPECT_EQ(fs::status(szOut).permissions(), fs::perms::all);
    fs::permissions(szOut, fs::perms::owner_all);
    LFile::GetSharedDataFolderAppSubFolder("all", szOut);
    EXPECT_EQ(fs::status(szOut).permissions(), fs::perms::owner_all);
    for (const char* szName : {"", "..", "a/b"})
        EXPECT_FALSE(LSetIdentity(szName, "com.acme.notes"));
    ASSERT_TRUE(LSetIdentity("acme-notes", "com.acme.notes"));
    LFile::GetUserDataFolderApp(szOut);
    EXPECT_EQ(szOut, sHome + "/.local/share/acme-notes");
    LSetIdentity("loginhelper", "com.brelvanic.loginhelper");
}

TEST_F(PlacesTest, FindProgramsAndTheWorkingFolder) {
    char szOut[LPathBufferSize];
    EXPECT_FALSE(LFile::GetInstalledApplicationExePath(szOut, "A.app"));
    EXPECT_STREQ(szOut, "/Applications/A.app");
    fs::create_directories(sHome + "/Applications/A.app");
    EXPECT_TRUE(LFile::GetInstalledApplicationExePath(szOut, "A.app"));
    EXPECT_EQ(szOut, sHome + "/Applications/A.app");
    EXPECT_EQ(LFile::SetCurrentDirectory(sHome.c_str()), 0);
    EXPECT_EQ(Ask(LFile::GetCurrentDirectory), sHome);
    const std::string sDeep = sHome + "/" + std::string(250, 'd');
    fs::create_directories(sDeep);
    EXPECT_EQ(LFile::SetCurrentDirectory(sDeep.c_str()), 0);
    EXPECT_EQ(Ask(LFile::GetCurrentDirectory), ""); // more than fits
    EXPECT_EQ(LFile::SetCurrentDirectory("/"), 0);
}

TEST_F(PlacesTest, NamesAreBytes) {
    const std::string sOdd = sHome + "/h\xFF";
    fs::create_directory(sHome + "/h");
    EXPECT_FALSE(LFile::Exists(sOdd.c_str()));
    char szOut[LPathBufferSize];
    EXPECT_EQ(LFile::MakeUniqueOrderedFilePath(szOut, sHome.c_str(), "h\xFF", ""), sOdd);
    fs::create_directory(sOdd);
    setenv("HOME", sOdd.c_str(), 1);
    EXPECT_EQ(Ask(LFile::GetTempFolder), sOdd + "/.cache");
    EXPECT_EQ(Ask(LFile::GetUserMusicFolder), sOdd + "/Music");
    for (const char* szPath : {"/a\xFF/b", ""}) // and where there is no process table
        InChild([&] {
            szProgram = szPath;
            const std::string sFolder = fs::path(szPath).parent_path();
            EXPECT_EQ(Ask(LFile::GetProgramExecutablePath), sFolder);
            EXPECT_EQ(Ask(LFile::GetHelpFolder), sFolder.empty() ? "" : sFolder + "/Contents/Resources/help");
        });
}

TEST_F(PlacesTest, VolumesAreAskedAsTheyAreNow) {
    const std::string sOne = sHome + "/one", sTwo = sHome + "/two";
    for (const std::string& sPoint : {sOne, sTwo})
        fs::create_directory(sPoint);
    volumes = {{sOne, "ext4"}, {sTwo, "nfs"}};
    EXPECT_FALSE(LFile::IsNetworkPath(sOne.c_str()));
    EXPECT_TRUE(LFile::IsNetworkPath(sTwo.c_str())) << "another volume on the same device";
    volumes = {{sOne, "fuse.sshfs"}, {sTwo, "hung"}};
    EXPECT_FALSE(LFile::IsOnLocalDrive(sOne.c_str()));
    const auto asked = std::async([&] { LFile::GetVolumeAttributes(sTwo.c_str()); });
    hangs.get_future().wait();
    EXPECT_FALSE(LFile::IsNetworkPath(sHome.c_str())) << "waits for a volume that does not answer";
    answers.set_value();
    asked.wait();
    volumes.clear();
}

TEST_F(PlacesTest, KnowVolumesAndSizes) {
    EXPECT_EQ(LFile::GetVolumeFileSizeLimit("/nowhere"), LFile::FileSizeLimitNone);
    const std::pair<const char*, int> limits[] = {{"fat", 0},    {"FAT12", 0}, {"Fat16", 0},
                                                  {"fat16b", 1}, {"fat32", 1}, {"exfat", 2},
                                                  {"ntfs", 2},   {"ext4", 2},  {"fat3", 2}};
    for (const auto& [szType, nLimit] : limits) {
        volumes["/"] = szType;
        EXPECT_EQ(LFile::GetVolumeFileSizeLimit("/"), nLimit) << szType;
    }
    volumes.clear();
    EXPECT_TRUE(LFile::IsOnLocalDrive(sHome.c_str()));
    EXPECT_NE(LFile::GetVolumeFileSystemID(sHome.c_str()), LFile::FileSystemUnknown);
    EXPECT_TRUE(LFile::IsNetworkPath("/missing"));
    const std::pair<unsigned long long, std::string> rows[] = {{0, "0 Bytes"},       {1023, "1023 Bytes"},
                                                               {1024, "1 KB"},       {1048575, "1023 KB"},
                                                               {1610612736, "1 GB"}, {~0ULL, "16777215 TB"}};
    for (const auto& [qwBytes, sText] : rows) {
        char szOut[LPathBufferSize];
        EXPECT_EQ(LFile::GetSizeFormattedBytes(qwBytes, szOut), static_cast<int>(sText.size()));
        EXPECT_EQ(szOut, sText);
    }
}

} // namespace
