#include "base/LLimits.h"
#include "platform/LCFBundle.h"
#include "platform/LCFString.h"
#include "platform/LCFURL.h"
#include "platform/LToFSSpec.h"
#include "platform/LUnicodeString.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

std::string utf8Of(const LCFString& string) {
    LStringLongTemplate<char> text;
    text = "old";
    string.GetString(text);
    EXPECT_EQ(text.GetLength(), std::strlen(text.GetText()));
    return text.GetText();
}

std::wstring wideOf(const LCFString& string) {
    LStringLongTemplate<wchar_t> text;
    string.GetString(text);
    EXPECT_EQ(text.GetLength(), std::wcslen(text.GetText()));
    return text.GetText();
}

TEST(CFString, TextsComeBackUpToTheFirstInvalidSequence) {
    struct Row {
        const char* text;
        const char* utf8;
        const wchar_t* wide;
    };
    const Row rows[] = {
        {"", "", L""},
        {"a\xC3\xA9\xE2\x82\xAC", "a\xC3\xA9\xE2\x82\xAC", L"a\u00E9\u20AC"},
        {"x\xF0\x9F\x98\x80y", "x\xF0\x9F\x98\x80y", L"x\xD83D\xDE00y"},
        {"ab\xFF"
         "cd",
         "ab", L"ab"},
        {"ab\xC3", "ab", L"ab"},
        {"\xFF", "", L""},
    };
    LCFString string;
    EXPECT_EQ(utf8Of(string), "");
    EXPECT_EQ(wideOf(string), L"");
    for (const Row& row : rows) {
        string.SetString(row.text);
        EXPECT_EQ(utf8Of(string), row.utf8) << row.text;
        EXPECT_EQ(wideOf(string), row.wide) << row.text;
    }
}

TEST(CFString, BuffersAreCutBetweenCharacters) {
    const LCFString string("a\xC3\xA9\xE2\x82\xAC");
    const std::pair<unsigned long, const char*> rows[] = {{0, "?"},
                                                          {1, ""},
                                                          {2, "a"},
                                                          {3, "a"},
                                                          {4, "a\xC3\xA9"},
                                                          {6, "a\xC3\xA9"},
                                                          {7, "a\xC3\xA9\xE2\x82\xAC"}};
    for (const auto& [size, expected] : rows) {
        char text[8] = "?";
        string.GetString(text, size);
        EXPECT_STREQ(text, expected) << size;
    }
    for (unsigned long size = 0; size < 6; ++size) {
        wchar_t text[6] = L"?";
        string.GetString(text, size);
        EXPECT_EQ(text, size == 0 ? L"?" : std::wstring(L"a\u00E9\u20AC").substr(0, size - 1)) << size;
    }
}

TEST(CFString, AHundredUnitsGet601Bytes) {
    LStringLongTemplate<char> text;
    LCFString(std::string(100, 'x').c_str()).GetString(text);
    EXPECT_EQ(text.GetCapacity(), 601U);
}

TEST(UnicodeString, Texts) {
    struct Row {
        const char16_t* text;
        const char* utf8;
        const wchar_t* wide;
    };
    const Row rows[] = {{nullptr, "", L""},
                        {u"", "", L""},
                        {u"a\u20AC\U0001F600", "a\xE2\x82\xAC\xF0\x9F\x98\x80", L"a\u20AC\xD83D\xDE00"},
                        {u"a\xD83D", "", L"a\xD83D"}}; // a lone surrogate has no UTF-8
    for (const Row& row : rows) {
        const std::u16string units(row.text != nullptr ? row.text : u"");
        unsigned short copy[8] = {};
        std::copy(units.begin(), units.end(), copy);
        const LUnicodeString string(row.text != nullptr ? copy : nullptr);
        LStringLongTemplate<char> text;
        LStringLongTemplate<wchar_t> wide;
        string.GetString(text);
        string.GetString(wide);
        EXPECT_STREQ(text.GetText(), row.utf8);
        EXPECT_STREQ(wide.GetText(), row.wide);
    }
}

class Files : public testing::Test {
protected:
    Files() {
        char pattern[] = "/tmp/platform-XXXXXX";
        root = fs::canonical(mkdtemp(pattern));
    }
    ~Files() override { fs::remove_all(root); }

    fs::path root;
};

TEST_F(Files, URLsKnowFolders) {
    LCFURL url;
    EXPECT_FALSE(url);
    for (const auto& [path, isFolder] : {std::pair(root, true), std::pair(root / "nothing", false)}) {
        url.CreateFromFullPath(path.c_str());
        ASSERT_TRUE(url) << path;
        EXPECT_EQ(CFURLHasDirectoryPath(url.Get()), isFolder) << path;
        const LCFRef<CFStringRef> text(CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle));
        EXPECT_EQ(utf8Of(LCFString(text.Get())), path);
    }
    url.CreateFromFullPath("");
    EXPECT_FALSE(url);
}

TEST_F(Files, BundleVersions) {
    struct Row {
        std::string value;
        bool found;
        int major, minor;
    };
    const Row rows[] = {
        {"<string>2.14</string>", true, 2, 14},
        {"<string>02.014.7</string>", true, 2, 14},
        {"<string>V 3.1</string>", true, 3, 1},
        {"<string>Vers 2.14</string>", true, 2, 14},
        {"<string>V2.14</string>", true, 0, 0},
        {"<string>Version</string>", true, 0, 0},
        {"<string>v3.1</string>", true, 0, 1},
        {"<string>12</string>", true, 12, 0},
        {"<string>.5</string>", true, 0, 5},
        {"<string>-1.-2</string>", true, -1, -2},
        {"<string></string>", false, 7, 7},
        {"<integer>2</integer>", false, 7, 7},
        {"<string>2." + std::string(400, '0') + "</string>", true, 2, 0},
    };
    fs::create_directories(root / "Contents");
    LCFURL url;
    url.CreateFromFullPath(root.c_str());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        std::ofstream(root / "Contents/Info.plist") << "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist "
                                                       "version=\"1.0\"><dict><key>CFBundleVersion</key>"
                                                    << row.value << "</dict></plist>";
        const LCFBundle bundle(CFBundleCreate(kCFAllocatorDefault, url.Get()));
        ASSERT_TRUE(bundle);
        int major = 7;
        int minor = 7;
        EXPECT_EQ(bundle.GetVersionNumber(major, minor), row.found);
        EXPECT_EQ(major, row.major);
        EXPECT_EQ(minor, row.minor);
    }
    fs::remove(root / "Contents/Info.plist");
    int number = 7;
    EXPECT_FALSE(LCFBundle(CFBundleCreate(kCFAllocatorDefault, url.Get())).GetVersionNumber(number, number));
    EXPECT_FALSE(LCFBundle(nullptr).GetVersionNumber(number, number));
    EXPECT_EQ(number, 7);
}

TEST_F(Files, SpecificationsOfPaths) {
    const std::string name63(63, 'n');
    fs::create_directories(root / "folder");
    std::ofstream(root / "folder/file").put('x');
    fs::create_symlink("folder/file", root / "link");
    struct Row {
        std::string path;
        OSErr error;
        std::string expected;
    };
    const Row rows[] = {
        {root / "folder/file", 0, root / "folder/file"},
        {root / "link", 0, root / "folder/file"},
        {root / "folder/new \xC3\xA9", 0, root / "folder/new \xC3\xA9"},
        {root / name63, 0, root / name63},
        {root / (name63 + "n"), -43, ""},
        {root / "nothing/new", -43, ""},
        {root / "bad\xFF", -108, ""},
        {"", -108, ""},
        {"/a-new-file", 0, "/a-new-file"},
        {"/tmp", 0, fs::canonical("/tmp")},
        {"/", 0, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        FSSpec spec;
        EXPECT_EQ(LToFSSpec::CStringToFSSpec(row.path.c_str(), &spec), row.error);
        const LToFSSpec item(row.path.c_str());
        EXPECT_EQ(item.bValid, row.error == 0);
        char text[LPathBufferSize] = "?";
        item.GetString(text, sizeof text);
        EXPECT_EQ(text, row.expected);
        item.GetString(text, 6);
        EXPECT_EQ(text, row.expected.substr(0, 5));
    }
    LToFSSpec stale((root / "folder/file").c_str());
    fs::rename(root / "folder", root / "moved");
    char text[LPathBufferSize] = "?";
    stale.GetString(text, sizeof text);
    EXPECT_STREQ(text, "");
}

} // namespace
