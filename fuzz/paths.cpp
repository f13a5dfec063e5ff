// The path operations and the wildcard: no write outside a path buffer, always terminated, and what the naive
// forms say.
#include "base/LLimits.h"
#include "files/LFile.h"
#include "files/PathOracle.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t kLongestWildcard = 12; // the naive form takes time that doubles with every star

void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

// What the operation leaves in a path buffer, which lies on the heap by itself for the sanitizer's sake.
template <typename Operation>
std::string result(Operation operation) {
    char* const out = new char[LPathBufferSize];
    operation(out);
    require(std::memchr(out, 0, LPathBufferSize) != nullptr, "terminated");
    std::string text(out);
    delete[] out;
    return text;
}

// Takes the text up to the next zero byte off the input.
std::string take(std::string& input) {
    const std::size_t end = std::min(input.find('\0'), input.size());
    std::string text = input.substr(0, end);
    input.erase(0, end + 1);
    return text;
}

void compareSplits(const std::string& path, const std::string& extension) {
    const char* const text = path.c_str();
    require(result([=](char* out) { LFile::_GetFolderFromPath(out, text); }) == oracle::folder(path),
            "folder");
    require(result([=](char* out) { LFile::_GetBaseFolderFromPath(out, text); }) == oracle::baseFolder(path),
            "base folder");
    require(result([=](char* out) { LFile::_GetFileFromPath(out, text); }) == oracle::file(path), "file");
    require(result([=](char* out) { LFile::_GetFileNameFromPath(out, text); }) == oracle::fileName(path),
            "name");
    require(result([=](char* out) { LFile::_GetFileExtensionFromPath(out, text); }) ==
                oracle::extension(path),
            "extension");
    require(result([&](char* out) { LFile::_ApplyNewFileExtension(out, text, extension.c_str()); }) ==
                oracle::newExtension(path, extension),
            "new extension");
}

void runPairs(const char* first, const char* second, const char* third) {
    result([=](char* out) { LFile::_MakeFilePath(out, first, second, third); });
    result([=](char* out) { LFile::MakeAbsoluteFilePath(out, first, second, third); });
    result([=](char* out) {
        const bool fits = LFile::GetRelativePathFromAbsolutePath(out, first, second);
        require(fits || *out == '\0', "a refused way is empty");
    });
    result([=](char* out) { LFile::MakeRelativeFolder(out, first, second); });
}

void runNames(const char* text) {
    const std::string name = result([=](char* out) { LFile::PreprocessName(text, out); });
    require(LFile::IsFileValid(name.c_str()) == !name.empty(), "a cleaned name is valid");
    result([=](char* out) { LFile::PreprocessPath(text, out); });
    result([=](char* out) { LFile::EscapeFilePath(text, out); });
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    const std::string first = take(input);
    const std::string second = take(input);
    const std::string third = take(input);
    compareSplits(first, third);
    runPairs(first.c_str(), second.c_str(), third.c_str());
    runNames(first.c_str());
    const bool matches = LFile::IsMatch<char>(first.c_str(), second.c_str());
    if (first.size() <= kLongestWildcard && second.size() <= kLongestWildcard)
        require(matches == oracle::matches(first.c_str(), second.c_str()), "wildcard");
    return 0;
}
