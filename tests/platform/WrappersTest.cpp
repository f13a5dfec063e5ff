#include "base/LLimits.h"
#include "platform/LCFBundle.h"
#include "platform/LCFString.h"
#include "platform/LCFURL.h"
#include "platform/LToFSSpec.h"
#include "platform/LUnicodeString.h"
#include "support/Bundle.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

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
    const std::tuple<const char*, const char*, std::wstring> rows[] = {
        {"", "", L""},
        {"a\xC3\xA9\xE2\x82\xAC", "a\xC3\xA9\xE2\x82\xAC", L"a\u00E9\u20AC"},
        {"x\xF0\x9F\x98\x80y", "x\xF0\x9F\x98\x80y", L"x\xD83D\xDE00y"},
        {"ab\xFF cd", "ab", L"ab"}};
    LCFString string;
    EXPECT_EQ(textOf<char>(string), "");
    for (const auto& [text, utf8, wide] : rows) {
        string.SetString(text);
        EXPECT_EQ(textOf<char>(string), utf8);
        EXPECT_EQ(textOf<wchar_t>(string), wide) << text;
        const std::basic_string<unsigned short> units(wide.begin(), wide.end());
        EXPECT_EQ(textOf<char>(LUnicodeString(units.c_str())), utf8);
        EXPECT_EQ(textOf<wchar_t>(LUnicodeString(units.c_str())), wide) << text;
    }
    const unsigned short loneSurrogate[] = {'a', 0xD83D, 0};
    EXPECT_EQ(textOf<char>(LUnicodeString(loneSurrogate)), "");
    EXPECT_EQ(textOf<wchar_t>(LUnicodeString(loneSurrogate)), L"a\xD83D");
    EXPECT_EQ(textOf<char>(LUnicodeString(nullptr)), "");
}

TEST(TextWrappers, BuffersAreCutBetweenCharacters) {
    const LCFString string("a\xC3\xA9\xE2\x82\xAC");
    const char* const utf8[] = {"?", "", "a", "a", "a\xC3\xA9", "a\xC3\xA9"};
    const wchar_t* const wide[] = {L"?", L"", L"a", L"a\u00E9", L"a\u00E9\u20AC", L"a\u00E9\u20AC"};
    for (unsigned long size = 0; size < std::size(utf8); ++size) {
        char text[8] = "?";
        wchar_t wideText[8] = L"?";
        string.GetString(text, size);
        string.GetString(wideText, size);
        EXPECT_STREQ(text, utf8[size]) << size;
        EXPECT_STREQ(wideText, wide[size]) << size;
    }
}

class FileWrappers : public testing::Test, protected TemporaryFolder {};

TEST_F(FileWrappers, FolderURLsAndTheVersionsOfTheirBundles) {
    LCFURL url;
    url.CreateFromFullPath("");
    EXPECT_FALSE(url);
    url.CreateFromFullPath((root / "nothing").c_str());
    EXPECT_FALSE(CFURLHasDirectoryPath(url.Get()));
    url.CreateFromFullPath(root.c_str());
    EXPECT_TRUE(CFURLHasDirectoryPath(url.Get()));
    const std::string longVersion = "<string>2." + std::string(400, '0') + "</string>";
    const std::tuple<std::string, int, int> rows[] = {
        {"<string>V2.14</string>", 0, 0}, {"<string>v3.1</string>", 0, 1},
        {"<string>12</string>", 12, 0},   {longVersion, 2, 0},
        {"<string></string>", 7, 7},      {"<integer>2</integer>", 7, 7}};
    fs::create_directories(root / "Contents");
    for (const auto& [value, major, minor] : rows) {
        std::ofstream(root / "Contents/Info.plist") << PropertyList("<key>CFBundleVersion</key>" + value);
        const LCFBundle bundle(CFBundleCreate(kCFAllocatorDefault, url.Get()));
        std::pair<int, int> found(7, 7); // stays when there is no version
        EXPECT_EQ(bundle.GetVersionNumber(found.first, found.second), major != 7) << value;
        EXPECT_EQ(found, std::pair(major, minor)) << value;
    }
}

TEST_F(FileWrappers, SpecificationsOfPaths) {
    const std::string name63(63, 'n');
    fs::create_directories(root / "folder");
    std::ofstream(root / "folder/file").put('x');
    std::ofstream(root / ("existing" + name63)).put('x');
    fs::create_symlink("folder/file", root / "link");
    const std::tuple<std::string, OSErr, std::string> rows[] = {
        {root / "link", 0, root / "folder/file"},
        {root / "folder/new \xC3\xA9", 0, root / "folder/new \xC3\xA9"},
        {root / name63, 0, root / name63},
        {root / (name63 + "n"), fnfErr, ""},
        {root / ("existing" + name63), bdNamErr, ""},
        {root / "nothing/new", fnfErr, ""},
        {root / "bad\xFF", memFullErr, ""},
        {"", memFullErr, ""},
        {"/a-new-file", 0, "/a-new-file"},
        {"/", 0, ""}};
    for (const auto& [path, error, expected] : rows) {
        FSSpec spec;
        EXPECT_EQ(LToFSSpec::CStringToFSSpec(path.c_str(), &spec), error) << path;
        const LToFSSpec item(path.c_str());
        EXPECT_EQ(item.bValid, error == 0) << path;
        char text[LPathBufferSize] = "?";
        item.GetString(text, sizeof text);
        EXPECT_EQ(text, expected);
    }
}

} // namespace
