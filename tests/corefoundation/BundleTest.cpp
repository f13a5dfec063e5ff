#include "Support.h"

#include "bsd/SystemCalls.h"
#include "corefoundation/CFBundle.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using Bundle = port::CFRef<CFBundleRef>;
using URL = port::CFRef<CFURLRef>;

Bundle open(const fs::path& path) {
    const auto text = port::makeString(path.string());
    const URL url(CFURLCreateWithFileSystemPath(nullptr, text.get(), kCFURLPOSIXPathStyle, true));
    return Bundle(CFBundleCreate(nullptr, url.get()));
}

std::string pathOf(const URL& url) {
    UInt8 path[4096] = "";
    return url && CFURLGetFileSystemRepresentation(url.get(), true, path, sizeof path)
               ? reinterpret_cast<const char*>(path)
               : "";
}

// The version as text: "" without one, "(other)" for another type.
std::string versionOf(const Bundle& bundle) {
    const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle.get(), kCFBundleVersionKey);
    if (value == nullptr)
        return "";
    std::string text = "(other)";
    if (CFGetTypeID(value) == CFStringGetTypeID())
        port::copyUtf8(static_cast<CFStringRef>(value), text);
    return text;
}

std::string info(std::string_view entries) {
    return "<plist version=\"1.0\"><dict>" + std::string(entries) + "</dict></plist>";
}

const std::string kVersion = "<key>CFBundleVersion</key><string>2.14</string>";

class BundleTest : public testing::Test {
protected:
    BundleTest() { fs::create_directories(app_ / "Contents/MacOS"); }
    ~BundleTest() override { port::sys::setHook(nullptr); }

    TestFolder folder_;
    fs::path app_ = folder_.path() / "Some App.app";
    fs::path info_ = app_ / "Contents/Info.plist";
};

TEST_F(BundleTest, HostileInformationMeansNoValue) {
    const std::string padding(port::kPropertyListFileLimit - info(kVersion).size(), '\n');
    const std::string nested = repeated("<array>", 100000) + repeated("</array>", 100000);
    const std::string entity = "<key>CFBundleVersion</key><string>&a;</string>";
    const std::pair<std::string, std::string> rows[] = {
        {info(kVersion), "2.14"},
        {info("<key>CFBundleVersion</key><integer>2</integer>"), "(other)"},
        {info(kVersion).substr(0, 70), ""},
        {"<plist version=\"1.0\"><string>2.14</string></plist>", ""},
        {info(kVersion + "<key>x</key><integer>1z</integer>"), ""},
        {info(kVersion) + padding, "2.14"},
        {info(kVersion) + padding + "\n", ""},
        {info(kVersion + "<key>x</key>" + nested), ""},
        {"<!DOCTYPE plist [<!ENTITY a \"2.14\">]>" + info(entity), ""},
    };
    for (const auto& [text, version] : rows) {
        writeFile(info_, text);
        EXPECT_EQ(version, versionOf(open(app_))) << text.substr(0, 200);
    }
}

TEST_F(BundleTest, WhatIsNoRegularFileIsNotRead) {
    EXPECT_EQ("", versionOf(open(app_))) << "missing";
    fs::create_directory(info_);
    EXPECT_EQ("", versionOf(open(app_))) << "a folder";
    fs::remove(info_);
    ASSERT_EQ(0, mkfifo(info_.c_str(), 0600));
    EXPECT_EQ("", versionOf(open(app_))) << "a pipe";
}

TEST_F(BundleTest, ShortReadsAreContinuedAndFailingOnesMeanNoValue) {
    writeFile(info_, info(kVersion));
    port::sys::setHook([](port::sys::Call) { return port::sys::Verdict{0, 7}; });
    EXPECT_EQ("2.14", versionOf(open(app_)));
    port::sys::setHook([](port::sys::Call call) {
        return port::sys::Verdict{call == port::sys::Call::Read ? EIO : 0, ~std::size_t{0}};
    });
    EXPECT_EQ("", versionOf(open(app_)));
}

TEST_F(BundleTest, OnlyFoldersAreBundles) {
    writeFile(folder_.path() / "file", "");
    EXPECT_FALSE(open(folder_.path() / "file"));
    EXPECT_FALSE(open(folder_.path() / "missing"));
    const Bundle bundle = open(app_);
    EXPECT_EQ(app_, pathOf(URL(CFBundleCopyBundleURL(bundle.get()))));
    EXPECT_EQ(app_ / "Contents/Resources", pathOf(URL(CFBundleCopyResourcesDirectoryURL(bundle.get()))));
    EXPECT_EQ(0, CFDictionaryGetCount(CFBundleGetInfoDictionary(bundle.get())));
}

TEST_F(BundleTest, TheProgramIsAPlainNameInsideTheBundle) {
    const fs::path programs = app_ / "Contents/MacOS";
    for (const fs::path& program : {programs / "tool", programs / "Some App", app_ / "outside"}) {
        writeFile(program, "#!/bin/sh\n");
        fs::permissions(program, fs::perms::owner_all);
    }
    writeFile(programs / "data", "");
    const std::pair<std::string, std::string> rows[] = {
        {"<key>CFBundleExecutable</key><string>tool</string>", programs / "tool"},
        {"", programs / "Some App"},
        {"<key>CFBundleExecutable</key><string>data</string>", ""},
        {"<key>CFBundleExecutable</key><string>../../outside</string>", ""},
        {"<key>CFBundleExecutable</key><string></string>", ""},
    };
    for (const auto& [entries, path] : rows) {
        writeFile(info_, info(entries + "<key>CFBundleIdentifier</key><string>org.example</string>"));
        const Bundle bundle = open(app_);
        EXPECT_EQ(path, pathOf(URL(CFBundleCopyExecutableURL(bundle.get())))) << entries;
        EXPECT_TRUE(CFEqual(CFSTR("org.example"), CFBundleGetIdentifier(bundle.get())));
    }
}

TEST(MainBundle, OfAPlainProgramIsItsFolder) {
    const fs::path program = fs::read_symlink("/proc/self/exe");
    __CFBundle* const bundle = CFBundleGetMainBundle();
    EXPECT_EQ(program.parent_path(), pathOf(URL(CFBundleCopyBundleURL(bundle))));
    EXPECT_EQ(program.parent_path(), pathOf(URL(CFBundleCopyResourcesDirectoryURL(bundle))));
    EXPECT_EQ(program, pathOf(URL(CFBundleCopyExecutableURL(bundle))));
}

TEST(MainBundle, IsToldByTheExecutablesPath) {
    EXPECT_EQ("/a/X.app", port::bundleFolderOfExecutable("/a/X.app/Contents/MacOS/x"));
    for (const char* path :
         {"/a/X/Contents/MacOS/x", "/a/X.app/Contents/x", "/a/X.app/Contents/MacOS/sub/x", "/x",
          "/a/.app/Contents/MacOS/x", "/Contents/MacOS/x", "/a/X.appContents/MacOS/x"})
        EXPECT_EQ("", port::bundleFolderOfExecutable(path)) << path;
    const TestFolder folder;
    fs::create_symlink("/a/tool (deleted)", folder.path() / "exe");
    EXPECT_EQ("/a/tool", port::readExecutableLink((folder.path() / "exe").c_str()));
}

} // namespace
