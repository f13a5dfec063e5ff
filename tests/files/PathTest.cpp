#include "files/LFile.h"
#include "files/PathOracle.h"

#include "base/LLimits.h"

#include <array>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <port/bsd.h>
#include <random>

namespace {

template <std::size_t count>
using Rows = std::vector<std::array<std::string, count>>;

// What the operation leaves in a path buffer.
template <typename Operation>
std::string result(Operation operation) {
    char out[LPathBufferSize + 1];
    std::memset(out, '#', sizeof out);
    operation(out);
    EXPECT_EQ(out[LPathBufferSize], '#');
    out[LPathBufferSize] = '\0';
    EXPECT_LT(std::strlen(out), LPathBufferSize);
    return out;
}

std::string split(void (*operation)(char*, const char*), const std::string& path) {
    return result([&](char* out) { operation(out, path.c_str()); });
}

std::string newExtension(const std::string& path, const char* added) {
    return result([&](char* out) { LFile::_ApplyNewFileExtension(out, path.c_str(), added); });
}

std::string repeat(const std::string& text, std::size_t count) {
    std::string out;
    while (count-- != 0)
        out += text;
    return out;
}

TEST(PathSplit, FolderBaseFileNameExtension) {
    const Rows<6> rows = {
        {"/a/b/c.txt", "/a/b", "/a", "c.txt", "c", ".txt"},
        {"/a/b/", "/a/b", "/a", "", "", ""},

        {"\\c.txt", "", "\\c.txt", "c.txt", "c", ".txt"},
        {"D:\\dir\\x", "D:\\dir", "D:", "x", "x", ""},
        {"\\\\server\\share\\x", "\\\\server\\share", "\\\\server", "x", "x", ""},

        {"//", "/", "/", "", "", ""},
        {"a/b", "a", "a/b", "b", "b", ""},

        {"/a/.profile", "/a", "/a", ".profile", ".profile", ".profile"},
    };
    for (const auto& [path, folder, base, file, name, extension] : rows) {
        EXPECT_EQ(split(LFile::_GetFolderFromPath, path), folder) << path;
        EXPECT_EQ(split(LFile::_GetBaseFolderFromPath, path), base) << path;
        EXPECT_EQ(split(LFile::_GetFileFromPath, path), file) << path;
        EXPECT_EQ(split(LFile::_GetFileNameFromPath, path), name) << path;
        EXPECT_EQ(split(LFile::_GetFileExtensionFromPath, path), extension) << path;
    }
}

TEST(PathSplit, AgreesWithTheNaiveFormsAtEveryLengthAroundTheLimits) {
    std::mt19937 random(7101);
    const char* const pieces[] = {"/", "\\", ".", "a", "bc", "\xC3\xA9", "\xE2\x82\xAC", ":"};
    for (int round = 0; round < 6000; ++round) {
        const std::size_t length = round % 2 == 0 ? random() % 12 : 250 + random() % 20;
        std::string path = round % 8 == 1 ? repeat("a", 240 + random() % 22) : "";
        while (path.size() < length)
            path += pieces[random() % std::size(pieces)];
        ASSERT_EQ(split(LFile::_GetFolderFromPath, path), oracle::folder(path)) << path;
        ASSERT_EQ(split(LFile::_GetBaseFolderFromPath, path), oracle::baseFolder(path)) << path;
        ASSERT_EQ(split(LFile::_GetFileFromPath, path), oracle::file(path)) << path;
        ASSERT_EQ(split(LFile::_GetFileNameFromPath, path), oracle::fileName(path)) << path;
        ASSERT_EQ(split(LFile::_GetFileExtensionFromPath, path), oracle::extension(path)) << path;
        ASSERT_EQ(newExtension(path, ".lck"), oracle::newExtension(path, ".lck")) << path;
    }
    EXPECT_EQ(newExtension("/x/.profile", ".bak"), "/x/.bak");
    EXPECT_EQ(newExtension(".profile", ".bak"), ".profile.bak");
}

std::string join(const std::string& folder, const std::string& name, const std::string& extension,
                 bool inPlace, unsigned& count) {
    return result([&](char* out) {
        strlcpy(out, folder.c_str(), LPathBufferSize);
        count = LFile::_MakeFilePath(out, inPlace ? out : folder.c_str(), name.c_str(), extension.c_str());
    });
}

TEST(PathJoin, ExamplesAndCuts) {
    const std::string a258(258, 'a');
    const std::string n253(253, 'n');
    const Rows<4> rows = {{"/tmp", "a", ".txt", "/tmp/a.txt"},
                          {"/tmp/", "a", ".txt", "/tmp/a.txt"},
                          {"D:\\x\\", "a", ".txt", "D:\\x\\a.txt"},
                          {"", "a", ".txt", "a.txt"},
                          {a258.substr(1), "bcd", "", a258.substr(1) + "/b"},
                          {a258, "b", ".c", a258 + "/"},
                          {a258 + "a", "b", ".c", a258 + "/"},
                          {"/tmp", n253 + "\xC3\xA9", ".c", "/tmp/" + n253 + "\xC3"}};
    for (const auto& [folder, name, extension, expected] : rows) {
        for (const bool inPlace : {false, true}) {
            unsigned count = 0;
            EXPECT_EQ(join(folder, name, extension, inPlace, count), expected);
            // Counted from where the name begins.
            EXPECT_EQ(count, expected.size() - expected.rfind(name.substr(0, count))) << expected;
        }
    }
}

std::string absolute(const std::string& base, const std::string& way, bool inPlace) {
    return result([&](char* out) {
        strlcpy(out, base.c_str(), LPathBufferSize);
        LFile::MakeAbsoluteFilePath(out, inPlace ? out : base.c_str(), way.c_str(), "");
    });
}

TEST(PathAbsolute, Examples) {
    const Rows<3> rows = {{"/a/b/c", "../d.txt", "/a/b/d.txt"},
                          {"/a/b", ".\\././x", "/a/b/x"},
                          {"/a/b", "/x", "/x"},
                          {"/a/b", "\\x", "\\x"},
                          {"/a/b", "D:\\x", "D:\\x"},
                          {"/a/b", "x/y:z", "/a/b/x/y:z"},
                          {"/a/b", "..", "/a/b/.."},
                          {"/a/b", ".", "/a/b/."},
                          {"/a/b", ".hidden", "/a/b/.hidden"},
                          {"/a/b", "..x/y", "/a/b/..x/y"},
                          {"/Users/me/", "../x", "/Users/x"},
                          {"/Users/me", "./../../x", "/x"},
                          {"/Users/me", "../../../x", "/../x"},
                          {"/", "../x", "/../x"},
                          {"\\a", "../x", "/x"},
                          {"ab/c", "../../x", "x"},
                          {"a/b", "../../x", "a/../x"},
                          {"D:\\a\\b", "..\\..\\..\\x", "x"},
                          {"", "../x", "../x"}};
    for (const auto& [base, relative, expected] : rows)
        for (const bool inPlace : {false, true})
            EXPECT_EQ(absolute(base, relative, inPlace), expected) << base << " with " << relative;
}

// The way from base to path; in brackets what is left of one that is refused.
std::string relative(const std::string& base, const std::string& path) {
    bool fits = false;
    const std::string way = result(
        [&](char* out) { fits = LFile::GetRelativePathFromAbsolutePath(out, base.c_str(), path.c_str()); });
    return fits ? way : "(" + way + ")";
}

TEST(PathRelative, Examples) {
    const std::string c257(257, 'c');
    const Rows<3> rows = {{"/a/b/c", "/a/x/y", "../../x/y"},
                          {"/a/b", "/a/bc", "../bc"},
                          {"/a/b", "/a/b/c.txt", "c.txt"},
                          {"/a/b/", "/a/b/c.txt", "c.txt"},
                          {"/a/b", "/a/b", "../b"},
                          {"/a/b/", "/a/b/", ""},
                          {"/a/b", "/a", "../../a"},
                          {"/a/b/c/", "/a/x", "../../x"},
                          {"D:\\p", "E:\\q", "E:\\q"},
                          {"D:\\p\\q", "D:\\r", "..\\..\\r"},
                          {"", "/x", "x"},
                          {"", "x", "x"},
                          {"a", "a/b", "b"},
                          {"/a", "", ""},
                          {"/a", "/a/" + c257 + "ccc", c257 + "cc"},
                          {"/b/x", "/b/" + c257, "../" + c257.substr(1)},
                          {"/b/x", "/b/c" + c257, "()"},
                          {"/b/" + repeat("x/", 90), "/b/y", "()"}};
    for (const auto& [base, path, expected] : rows)
        EXPECT_EQ(relative(base, path), expected) << base << " to " << path;
}

TEST(PathRelative, LeadsBackToThePath) {
    std::mt19937 random(7103);
    const auto anyPath = [&] {
        std::string path;
        for (std::size_t depth = 1 + random() % 5; depth != 0; --depth)
            path += std::array{"/a", "/ab", "/b"}[random() % 3];
        return path;
    };
    for (int round = 0; round < 5000; ++round) {
        const std::string base = anyPath();
        const std::string path = anyPath();
        const std::string way = relative(base, path);
        ASSERT_EQ((std::filesystem::path(base) / way).lexically_normal(), path) << base;
        ASSERT_EQ(absolute(base, way, false), path) << base;
    }
}

std::string simpleRelative(const std::string& base, const std::string& path) {
    return result(
        [&](char* out) { EXPECT_TRUE(LFile::MakeRelativeFilePath(out, base.c_str(), path.c_str())); });
}

TEST(PathRelative, SimpleFormKnowsOnlyTheSlash) {
    const Rows<3> rows = {{"/a/b/", "/a/c/d", "../c/d"},
                          {"/a", "/a/x", "x"},
                          {"/a/b/", "/a/b", "../"},
                          {"/a/bc/", "/a/bd/x", "../bd/x"},
                          {"/a/b", "/a/bc", "../bc"},
                          {"/a/b", "/a/b/", ""},
                          {"/a/bc", "/a/b", "../b"},
                          {"/a\\b", "/a\\c/d", "../a\\c/d"},
                          {"/b/" + repeat("x/", 120), "/b/y", repeat("../", 86) + "."}};
    for (const auto& [base, path, expected] : rows)
        EXPECT_EQ(simpleRelative(base, path), expected) << base << " to " << path;
}

TEST(PathNames, CleanedValidatedEscaped) {
    const std::string a257(257, 'a');
    const Rows<4> rows = {{"a/b:c?.txt", "abc.txt", "a/bc.txt", "a/b:c?.txt"},
                          {"\"*:<>?|", "", "", "\\\"*:<>?|"},
                          {"   ", "   ", "   ", "   "},
                          {"caf\xC3\xA9\x7F", "caf\xC3\xA9\x7F", "caf\xC3\xA9\x7F", "caf\xC3\xA9\x7F"},
                          {"a\x1F`b\tc", "a`bc", "a`bc", "a\x1F\\`b\tc"},
                          {a257 + "\"x", a257 + "x", a257 + "x", a257 + "\\\""},
                          {a257 + "a\"xy", a257 + "ax", a257 + "ax", a257 + "a\\"}};
    for (const auto& [text, name, path, escaped] : rows) {
        bool nameLeft = false;
        bool pathLeft = false;
        const char* const in = text.c_str();
        EXPECT_EQ(result([&](char* out) { nameLeft = LFile::PreprocessName(in, out); }), name);
        EXPECT_EQ(nameLeft, !name.empty()) << text;
        EXPECT_EQ(result([&](char* out) { pathLeft = LFile::PreprocessPath(in, out); }), path);
        EXPECT_EQ(pathLeft, path.find_first_not_of(' ') != path.npos) << text;
        EXPECT_EQ(LFile::IsFileValid(in), name == text) << text;
        EXPECT_EQ(result([&](char* out) { EXPECT_EQ(LFile::EscapeFilePath(in, out), out); }), escaped);
    }
    EXPECT_FALSE(LFile::IsFileValid(""));
}

TEST(PathNames, SmallQuestions) {
    const char* const extensions[] = {".txt", ".Zip", nullptr};
    EXPECT_TRUE(LIsFileExtensionInList(extensions, ".ZIP"));
    EXPECT_FALSE(LIsFileExtensionInList(extensions, ".zi"));
    for (int code = -128; code < 128; ++code)
        EXPECT_EQ(LFileIsLetterOrNumber(static_cast<char>(code)), code > 0 && std::isalnum(code) != 0)
            << code;
    EXPECT_EQ(tstrcmpend("file.txt", ".txt"), 0);
    EXPECT_EQ(tstrcmpend("txt", ".txt"), -1);
    EXPECT_GT(tstrcmpend("file.txu", ".txt"), 0);
}

// Every text of up to `longest` characters of the alphabet.
std::vector<std::string> allTexts(const std::string& alphabet, std::size_t longest) {
    std::vector<std::string> texts{""};
    for (std::size_t i = 0; texts[i].size() < longest; ++i)
        for (const char character : alphabet)
            texts.push_back(texts[i] + character);
    return texts;
}

TEST(PathWildcard, AgreesWithTheRecursiveFormOnAllSmallTexts) {
    const std::vector<std::string> names = allTexts("*ab", 6);
    for (const std::string& pattern : allTexts("*?ab", 5))
        for (const std::string& name : names)
            ASSERT_EQ(LFile::IsMatch<char>(pattern.c_str(), name.c_str()),
                      oracle::matches(pattern.c_str(), name.c_str()))
                << pattern << "|" << name;
}

TEST(PathWildcard, ExamplesAndManyStars) {
    EXPECT_TRUE(LFile::IsMatch<char>("*.txt", "notes.txt"));
    EXPECT_FALSE(LFile::IsMatch<char>("*.txt", "notes.TXT"));
    EXPECT_FALSE(LFile::IsMatch<char>("*b", "*ab"));
    EXPECT_FALSE(LFile::IsMatch<char>((repeat("*a", 120) + "b").c_str(), repeat("a", 1000).c_str()));
}

TEST(PathDrive, MountPointOrLabel) {
    const Rows<2> rows = {{"/proc/self/status", "/proc"},
                          {"/nowhere/at all", "/"},
                          {"D:\\nowhere", "D:\\"},
                          {".nowhere", ""},
                          {"\\nowhere", ""},
                          {repeat("d", 300), repeat("d", 257) + ":\\"}};
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(split(LFile::GetHumanReadableDriveFromPath, path), expected) << path;
}

} // namespace
