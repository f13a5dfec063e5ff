#include "Support.h"

#include "corefoundation/CFBundle.h"

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using Bundle = port::CFRef<CFBundleRef>;

Bundle open(const fs::path& path) {
    return Bundle(CFBundleCreate(nullptr, port::makeURL(path.string(), true).get()));
}

std::string info(std::string_view entries) {
    return "<plist version=\"1.0\"><dict>" + std::string(entries) + "</dict></plist>";
}

const std::string kVersion = "<key>CFBundleVersion</key><string>2.14</string>";

struct BundleTest : testing::Test {
    BundleTest() { fs::create_directories(programs); }

    // The version's text, "" without one.
    std::string version() {
        const Bundle bundle = open(app);
        const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle.get(), kCFBundleVersionKey);
        return value == nullptr ? "" : textOf(String::retained(static_cast<CFStringRef>(value)));
    }

    TestFolder folder;
    const fs::path app = folder.path / "Some App.app";
    const fs::path programs = app / "Contents/MacOS";
    const fs::path infoFile = app / "Contents/Info.plist";
};

TEST_F(BundleTest, OnlyAWholeListOfLawfulSizeInARegularFileIsInformation) {
    ASSERT_EQ(0, mkfifo(infoFile.c_str(), 0600));
    EXPECT_EQ("", version()) << "a pipe";
    fs::remove(infoFile);
    const std::string padding(port::kPropertyListFileLimit - info(kVersion).size(), '\n');
    const std::pair<std::string, std::string> rows[] = {
        {info(kVersion), "2.14"},
        {info(kVersion).substr(0, 80), ""},
        {"<plist version=\"1.0\"><string>2.14</string></plist>", ""},
        {info(kVersion) + padding, "2.14"},
        {info(kVersion) + padding + "\n", ""},
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
    std::ofstream(programs / "data") << "";
    const std::pair<std::string, std::string> rows[] = {
        {"<key>CFBundleExecutable</key><string>tool</string>", programs / "tool"},
        {"", programs / "Some App"},
        {"<key>CFBundleExecutable</key><string>data</string>", "(null)"},
        {"<key>CFBundleExecutable</key><string>../../outside</string>", "(null)"},
    };
    for (const auto& [entries, path] : rows) {
        std::ofstream(infoFile) << info(entries + "<key>CFBundleIdentifier</key><string>org.x</string>");
        const Bundle bundle = open(app);
        EXPECT_EQ(path, pathOf(URL(CFBundleCopyExecutableURL(bundle.get())))) << entries;
        EXPECT_TRUE(CFEqual(CFSTR("org.x"), CFBundleGetIdentifier(bundle.get())));
    }
    EXPECT_FALSE(open(programs / "data")) << "no folder";
    EXPECT_EQ(app / "Contents/Resources", pathOf(URL(CFBundleCopyResourcesDirectoryURL(open(app).get()))));
}

TEST(MainBundle, IsToldByTheExecutablesPath) {
    const fs::path program = fs::read_symlink("/proc/self/exe");
    __CFBundle* const bundle = CFBundleGetMainBundle();
    EXPECT_EQ(program.parent_path(), pathOf(URL(CFBundleCopyBundleURL(bundle))));
    EXPECT_EQ(program.parent_path(), pathOf(URL(CFBundleCopyResourcesDirectoryURL(bundle))));
    EXPECT_EQ(program, pathOf(URL(CFBundleCopyExecutableURL(bundle))));

    EXPECT_EQ("/a/X.app", port::bundleFolderOfExecutable("/a/X.app/Contents/MacOS/x"));
    for (const char* path :
         {"/a/X/Contents/MacOS/x", "/x", "/a/.app/Contents/MacOS/x", "/a/X.appContents/MacOS/x"})
        EXPECT_EQ("", port::bundleFolderOfExecutable(path)) << path;
    const TestFolder folder;
    fs::create_symlink("/a/tool (deleted)", folder.path / "exe");
    EXPECT_EQ("/a/tool", port::readExecutableLink((folder.path / "exe").c_str()));
}

} // namespace
