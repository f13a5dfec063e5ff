#include "base/LLimits.h"
#include "platform/LCFBundle.h"
#include "platform/LCFString.h"
#include "platform/LCFURL.h"
#include "platform/LToFSSpec.h"
#include "platform/LUnicodeString.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

// The text in the library's growable form, which held something before.
template <typename T, typename Source>
std::basic_string<T> textOf(const Source& source) {
    LStringLongTemplate<T> text;
    text.GrowToSize(4);
    text.SetLength(3);
    source.GetString(text);
    return std::basic_string<T>(text.GetText(), text.GetLength());
}

TEST(TextWrappers, TextsComeBackUpToTheFirstInvalidSequence) {
    struct Row {
        std::string text, utf8;
        std::wstring wide;
    };
    const Row rows[] = {
        {"", "", L""},
        {"a\xC3\xA9\xE2\x82\xAC", "a\xC3\xA9\xE2\x82\xAC", L"a\u00E9\u20AC"},
        {"x\xF0\x9F\x98\x80y", "x\xF0\x9F\x98\x80y", L"x\xD83D\xDE00y"},
        {"ab\xFF" + std::string("cd"), "ab", L"ab"},
        {"ab\xC3", "ab", L"ab"},
        {"\xFF", "", L""},
    };
    LCFString string;
    EXPECT_EQ(textOf<char>(string), "");
    EXPECT_EQ(textOf<wchar_t>(string), L"");
    for (const Row& row : rows) {
        string.SetString(row.text.c_str());
        EXPECT_EQ(textOf<char>(string), row.utf8);
        EXPECT_EQ(textOf<wchar_t>(string), row.wide) << row.text;
        const std::vector<unsigned short> units(row.wide.c_str(), row.wide.c_str() + row.wide.size() + 1);
        EXPECT_EQ(textOf<char>(LUnicodeString(units.data())), row.utf8);
        EXPECT_EQ(textOf<wchar_t>(LUnicodeString(units.data())), row.wide) << row.text;
    }
    const unsigned short loneSurrogate[] = {'a', 0xD83D, 0};
    EXPECT_EQ(textOf<char>(LUnicodeString(loneSurrogate)), "");
    EXPECT_EQ(textOf<wchar_t>(LUnicodeString(loneSurrogate)), L"a\xD83D");
    EXPECT_EQ(textOf<char>(LUnicodeString(nullptr)), "");
}

TEST(TextWrappers, BuffersAreCutBetweenCharacters) {
    const LCFString string("a\xC3\xA9\xE2\x82\xAC");
    const char* const utf8[] = {"?",         "",          "a",         "a",
                                "a\xC3\xA9", "a\xC3\xA9", "a\xC3\xA9", "a\xC3\xA9\xE2\x82\xAC"};
    const wchar_t* const wide[] = {L"?", L"", L"a", L"a\u00E9", L"a\u00E9\u20AC", L"a\u00E9\u20AC"};
    for (unsigned long size = 0; size < std::size(utf8); ++size) {
        char text[8] = "?";
        string.GetString(text, size);
        EXPECT_STREQ(text, utf8[size]) << size;
    }
    for (unsigned long size = 0; size < std::size(wide); ++size) {
        wchar_t text[8] = L"?";
        string.GetString(text, size);
        EXPECT_STREQ(text, wide[size]) << size;
    }
    LStringLongTemplate<char> text;
    LCFString(std::string(100, 'x').c_str()).GetString(text);
    EXPECT_EQ(text.GetCapacity(), 601U);
}

class FileWrappers : public testing::Test {
protected:
    FileWrappers() {
        char pattern[] = "/tmp/platform-XXXXXX";
        root = fs::canonical(mkdtemp(pattern));
    }
    ~FileWrappers() override { fs::remove_all(root); }

    fs::path root;
};

TEST_F(FileWrappers, URLsKnowFolders) {
    LCFURL url;
    for (const auto& [path, isFolder] : {std::pair(root, true), std::pair(root / "nothing", false)}) {
        url.CreateFromFullPath(path.c_str());
        ASSERT_TRUE(url) << path;
        EXPECT_EQ(CFURLHasDirectoryPath(url.Get()), isFolder) << path;
        const LCFRef<CFStringRef> text(CFURLCopyFileSystemPath(url.Get(), kCFURLPOSIXPathStyle));
        EXPECT_EQ(textOf<char>(LCFString(text.Get())), path);
    }
    url.CreateFromFullPath("");
    EXPECT_FALSE(url);
}

TEST_F(FileWrappers, BundleVersions) {
    const std::pair<int, int> none(7, 7);
    const std::pair<std::string, std::pair<int, int>> rows[] = {
        {"<string>02.014.7</string>", {2, 14}},
        {"<string>V 3.1</string>", {3, 1}},
        {"<string>Vers 2.14</string>", {2, 14}},
        {"<string>V2.14</string>", {0, 0}},
        {"<string>v3.1</string>", {0, 1}},
        {"<string>12</string>", {12, 0}},
        {"<string></string>", none},
        {"<integer>2</integer>", none},
        {"<string>2." + std::string(400, '0') + "</string>", {2, 0}}};
    fs::create_directories(root / "Contents");
    LCFURL url;
    url.CreateFromFullPath(root.c_str());
    for (const auto& [value, expected] : rows) {
        std::ofstream(root / "Contents/Info.plist")
            << "<plist version=\"1.0\"><dict><key>CFBundleVersion</key>" << value << "</dict></plist>";
        const LCFBundle bundle(CFBundleCreate(kCFAllocatorDefault, url.Get()));
        std::pair<int, int> found = none;
        EXPECT_EQ(bundle.GetVersionNumber(found.first, found.second), expected != none) << value;
        EXPECT_EQ(found, expected) << value;
    }
    int number = 7;
    EXPECT_FALSE(LCFBundle(nullptr).GetVersionNumber(number, number));
}

TEST_F(FileWrappers, SpecificationsOfPaths) {
    const std::string name63(63, 'n');
    fs::create_directories(root / "folder");
    std::ofstream(root / "folder/file").put('x');
    std::ofstream(root / ("existing" + name63)).put('x');
    fs::create_symlink("folder/file", root / "link");
    struct Row {
        std::string path;
        OSErr error;
        std::string expected;
    };
    const Row rows[] = {
        {root / "link", 0, root / "folder/file"},
        {root / "folder/new \xC3\xA9", 0, root / "folder/new \xC3\xA9"},
        {root / name63, 0, root / name63},
        {root / (name63 + "n"), fnfErr, ""},
        {root / ("existing" + name63), bdNamErr, ""},
        {root / "nothing/new", fnfErr, ""},
        {root / "bad\xFF", memFullErr, ""},
        {"", memFullErr, ""},
        {"/a-new-file", 0, "/a-new-file"},
        {"/", 0, ""},
    };
    for (const Row& row : rows) {
        FSSpec spec;
        EXPECT_EQ(LToFSSpec::CStringToFSSpec(row.path.c_str(), &spec), row.error) << row.path;
        const LToFSSpec item(row.path.c_str());
        EXPECT_EQ(item.bValid, row.error == 0) << row.path;
        char text[LPathBufferSize] = "?";
        item.GetString(text, sizeof text);
        EXPECT_EQ(text, row.expected);
        item.GetString(text, 6);
        EXPECT_EQ(text, row.expected.substr(0, 5));
    }
}

} // namespace
