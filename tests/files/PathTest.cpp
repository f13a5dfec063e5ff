#include "files/LFile.h"
#include "files/PathOracle.h"

#include "base/LLimits.h"

#include <array>
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
    std::string out(LPathBufferSize + 1, '#');
    operation(out.data());
    EXPECT_EQ(out.back(), '#');
    EXPECT_LT(out.find('\0'), LPathBufferSize);
    return out.c_str();
}

// The same for an operation on a base: beside it and in its place.
template <typename Operation>
std::string resultOn(const std::string& base, Operation operation) {
    const std::string beside = result([&](char* out) { operation(out, base.c_str()); });
    const std::string inPlace = result([&](char* out) {
        strlcpy(out, base.c_str(), LPathBufferSize);
        operation(out, out);
    });
    EXPECT_EQ(inPlace, beside) << base;
    return beside;
}

std::string split(void (*operation)(char*, const char*), const std::string& path) {
    return result([&](char* out) { operation(out, path.c_str()); });
}

std::string repeat(const std::string& text, std::size_t count) {
    std::string out;
    while (count-- != 0)
        out += text;
    return out;
}

const std::pair<void (*)(char*, const char*), std::string (*)(const std::string&)> splits[] = {
    {LFile::_GetFolderFromPath, oracle::folder},
    {LFile::_GetBaseFolderFromPath, oracle::baseFolder},
    {LFile::_GetFileFromPath, oracle::file},
    {LFile::_GetFileNameFromPath, oracle::fileName},
    {LFile::_GetFileExtensionFromPath, oracle::extension}};

TEST(PathSplit, AgreesWithTheNaiveFormsAtEveryLengthAroundTheLimits) {
    std::mt19937 random(7101);
    const char* const pieces[] = {"/", "\\", ".", "a", "bc", "\xC3\xA9", "\xE2\x82\xAC", ":"};
    for (int round = 0; round < 6000; ++round) {
        const std::size_t length = round % 2 == 0 ? random() % 12 : 250 + random() % 20;
        std::string path(round % 8 == 1 ? 240 + random() % 22 : 0, 'a');
        while (path.size() < length)
            path += pieces[random() % std::size(pieces)];
        for (const auto& [operation, naive] : splits)
            ASSERT_EQ(split(operation, path), naive(path)) << path;
        ASSERT_EQ(result([&](char* out) { LFile::_ApplyNewFileExtension(out, path.c_str(), ".lck"); }),
                  oracle::newExtension(path, ".lck"))
            << path;
    }
}

TEST(PathJoin, ExamplesAndCuts) {
    const std::string a258(258, 'a');
    const std::string n253(253, 'n');
    const Rows<4> rows = {{"D:\\x\\", "a", ".txt", "D:\\x\\a.txt"},
                          {"", "a", ".txt", "a.txt"},
                          {a258.substr(1), "bcd", "", a258.substr(1) + "/b"},
                          {a258, "b", ".c", a258 + "/"},
                          {a258 + "a", "b", ".c", a258 + "/"},
                          {"/tmp", n253 + "\xC3\xA9", ".c", "/tmp/" + n253 + "\xC3"}};
    for (const auto& row : rows) {
        unsigned count = 0;
        const std::string path = resultOn(row[0], [&](char* out, const char* folder) {
            count = LFile::_MakeFilePath(out, folder, row[1].c_str(), row[2].c_str());
        });
        EXPECT_EQ(path, row[3]);
        // Counted from where the name begins.
        EXPECT_EQ(count, path.size() - path.rfind(row[1].substr(0, count))) << path;
    }
}

std::string absolute(const std::string& base, const std::string& way) {
    return resultOn(base, [&](char* out, const char* folder) {
        LFile::MakeAbsoluteFilePath(out, folder, way.c_str(), "");
    });
}

TEST(PathAbsolute, Examples) {
    const Rows<3> rows = {
        {"/a/b/c", "../d.txt", "/a/b/d.txt"}, {"/ab/cd/", "../x", "/ab/x"}, {"/a/b", "..", "/a/b/.."},
        {"/a/b", "../../../x", "/../x"},      {"/a/b", "D:\\x", "D:\\x"},   {"/a/b", "/x", "/x"},
        {"/a/b", ".\\././x", "/a/b/x"},       {"ab/cd", "../../x", "x"},    {"\\a", "../x", "/x"},
        {"/a/b", "x/y:z", "/a/b/x/y:z"},      {"/a/b", "./../../x", "/x"},  {"/a/b", ".", "/a/b/."},
        {"/a/b", "..x/y", "/a/b/..x/y"},      {"a/b", "../../x", "a/../x"}, {"/", "../x", "/../x"},
        {"/a/b", ".hid", "/a/b/.hid"},        {"D:\\a", "..\\..\\x", "x"},  {"", "../x", "../x"}};
    for (const auto& [base, relative, expected] : rows)
        EXPECT_EQ(absolute(base, relative), expected) << base << " with " << relative;
}

// The way from base to path; in brackets what is left of one that is refused.
std::string relative(const std::string& base, const std::string& path) {
    bool fits = false;
    const std::string way = result(
        [&](char* out) { fits = LFile::GetRelativePathFromAbsolutePath(out, base.c_str(), path.c_str()); });
    return fits ? way : "(" + way + ")";
}

std::string simpleRelative(const std::string& base, const std::string& path) {
    return result(
        [&](char* out) { EXPECT_TRUE(LFile::MakeRelativeFilePath(out, base.c_str(), path.c_str())); });
}

TEST(PathRelative, Examples) {
    const std::string c257(257, 'c');
    const Rows<3> rows = {
        {"/a/b/c", "/a/x/y", "../../x/y"},  {"/a/b", "/a/bc", "../bc"}, {"", "/x", "x"},
        {"D:\\p\\q", "D:\\r", "..\\..\\r"}, {"/a/b/", "/a/b/c", "c"},   {"a", "a/b", "b"},
        {"/a/b/c/", "/a/x", "../../x"},     {"/a/b", "/a/b", "../b"},   {"/a", "", ""},
        {"D:\\p", "E:\\q", "E:\\q"},        {"/a/b/", "/a/b/", ""},     {"/a/b", "/a/b/c", "c"},
        {"/a/b", "/a", "../../a"}};
    for (const auto& [base, path, expected] : rows)
        EXPECT_EQ(relative(base, path), expected) << base << " to " << path;
    // The simple form knows only the slash.
    const Rows<3> simple = {
        {"/a/bc/", "/a/bd/x", "../bd/x"},  {"/a/b", "/a/bc", "../bc"}, {"/a/b", "/a/b/", ""},
        {"/a\\b", "/a\\c/d", "../a\\c/d"}, {"/a/bc", "/a/b", "../b"},  {"/a/b/", "/a/b", "../"}};
    for (const auto& [base, path, expected] : simple)
        EXPECT_EQ(simpleRelative(base, path), expected) << base << " to " << path;
    EXPECT_EQ(relative("/a", "/a/" + c257 + "ccc"), c257 + "cc");
    EXPECT_EQ(relative("/b/x", "/b/" + c257), "../" + c257.substr(1));
    EXPECT_EQ(relative("/b/x", "/b/c" + c257), "()");
    EXPECT_EQ(relative("/b/" + repeat("x/", 90), "/b/y"), "()");
    EXPECT_EQ(simpleRelative("/b/" + repeat("x/", 120), "/b/y"), repeat("../", 86) + ".");
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
        ASSERT_EQ(absolute(base, way), path) << base;
    }
}

TEST(PathNames, CleanedValidatedEscaped) {
    const std::string a257(257, 'a');
    const Rows<4> rows = {{"a/b:\xC3\xA9?.\x7F", "ab\xC3\xA9.\x7F", "a/b\xC3\xA9.\x7F", "a/b:\xC3\xA9?.\x7F"},
                          {"\"*:<>?|", "", "", "\\\"*:<>?|"},
                          {"   ", "   ", "   ", "   "},
                          {"a\x1F`\1b\tc", "a`bc", "a`bc", "a\x1F\\`\1b\tc"},
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

TEST(PathNames, Endings) {
    const char* const extensions[] = {".txt", ".Zip", nullptr};
    EXPECT_TRUE(LIsFileExtensionInList(extensions, ".ZIP"));
    EXPECT_FALSE(LIsFileExtensionInList(extensions, ".zi"));
    EXPECT_EQ(tstrcmpend("file.txt", ".txt"), 0);
    EXPECT_EQ(tstrcmpend("txt", ".txt"), -1);
}

// Every text of up to `longest` characters of the alphabet.
std::vector<std::string> allTexts(const std::string& alphabet, std::size_t longest) {
    std::vector<std::string> texts{""};
    for (std::size_t i = 0; texts[i].size() < longest; ++i)
        for (const char character : alphabet)
            texts.push_back(texts[i] + character);
    return texts;
}

TEST(PathWildcard, AgreesWithTheRecursiveFormAndIsQuick) {
    const std::vector<std::string> names = allTexts("*ab", 6);
    for (const std::string& pattern : allTexts("*?ab", 5))
        for (const std::string& name : names)
            ASSERT_EQ(LFile::IsMatch<char>(pattern.c_str(), name.c_str()),
                      oracle::matches(pattern.c_str(), name.c_str()))
                << pattern << "|" << name;
    EXPECT_FALSE(LFile::IsMatch<char>("*.txt", "notes.TXT"));
    EXPECT_FALSE(LFile::IsMatch<char>((repeat("*a", 120) + "b").c_str(), repeat("a", 1000).c_str()));
}

TEST(PathDrive, MountPointOrLabel) {
    const Rows<2> rows = {{"/proc/self/status", "/proc"},
                          {"/nowhere/at all", "/"},
                          {"D:\\nowhere", "D:\\"},
                          {".nowhere", ""},
                          {std::string(300, 'd'), std::string(257, 'd') + ":\\"}};
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(split(LFile::GetHumanReadableDriveFromPath, path), expected) << path;
}

} // namespace
