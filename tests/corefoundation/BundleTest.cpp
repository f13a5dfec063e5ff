#include "Support.h"

#include "corefoundation/CFBundle.h"
#include "host/ExecutableLink.h"

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using Bundle = port::CFRef<CFBundleRef>;

Bundle open(const fs::path& path) {
    return Bundle(CFBundleCreate(nullptr, port::makeURL(path.string(), true).get()));
}

struct BundleTest : testing::Test, TemporaryFolder {
    BundleTest() { fs::create_directories(programs); }

    // The version's text, "" without one.
    std::string version() {
        const Bundle bundle = open(app);
        const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle.get(), kCFBundleVersionKey);
        return value == nullptr ? "" : textOf(String::retained(static_cast<CFStringRef>(value)));
    }

    const fs::path app = root / "Some App.app";
    const fs::path programs = app / "Contents/MacOS";
    const fs::path infoFile = app / "Contents/Info.plist";
};

TEST_F(BundleTest, OnlyAWholeListOfLawfulSizeInARegularFileIsInformation) {
    ASSERT_EQ(0, mkfifo(infoFile.c_str(), 0600));
    EXPECT_EQ("", version()) << "a pipe";
    fs::remove(infoFile);
    const std::string good = PropertyList(Entry("CFBundleVersion", "2.14"));
    const std::string padding(port::kPropertyListFileLimit - good.size(), '\n');
    const std::pair<std::string, std::string> rows[] = {
        {good, "2.14"},
        {good.substr(0, 80), ""},
        {"<plist version=\"1.0\"><string>2.14</string></plist>", ""},
        {good + padding, "2.14"},
        {good + padding + "\n", ""},
    };
    for (const auto& [text, expected] : rows) {
        std::ofstream(infoFile) << text;
        EXPECT_EQ(expected, version()) << text.substr(0, 200);
    }
}

TEST_F(BundleTest, TheProgramIsAPlainNameInsideTheBundle) {
    for (const fs::path& program : {programs / "tool", programs / "Some App", app / "outside"}) {
        std::ofstream(program) << "#!/bin/sh\n";
        fs::permissions(program, fs::perms::owner_all);
    }
    fs::create_directory(programs / "data");
    const std::pair<std::string, std::string> rows[] = {
        {Entry("CFBundleExecutable", "tool"), programs / "tool"},
        {"", programs / "Some App"},
        {Entry("CFBundleExecutable", "data"), "(null)"},
        {Entry("CFBundleExecutable", "../../outside"), "(null)"},
    };
    for (const auto& [entries, path] : rows) {
        std::ofstream(infoFile) << PropertyList(entries);
        EXPECT_EQ(path, pathOf(URL(CFBundleCopyExecutableURL(open(app).get())))) << entries;
    }
    EXPECT_FALSE(open(programs / "tool")) << "no folder";
}

TEST(MainBundle, IsToldByTheExecutablesPath) {
    EXPECT_EQ("/a/X.app", port::bundleFolderOfExecutable("/a/X.app/Contents/MacOS/x"));
    for (const char* path :
         {"/a/X/Contents/MacOS/x", "/x", "/a/.app/Contents/MacOS/x", "/a/X.appContents/MacOS/x"})
        EXPECT_EQ("", port::bundleFolderOfExecutable(path)) << path;
    const TemporaryFolder folder;
    fs::create_symlink("/a/tool (deleted)", folder.root / "exe");
    EXPECT_EQ("/a/tool", port::readExecutableLink((folder.root / "exe").c_str()));
}

} // namespace
