// Short hands for the tests of Core Foundation.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

#include "corefoundation/CFObject.h"
#include "corefoundation/CFString.h"
#include "corefoundation/PropertyList.h"

inline port::Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// The list in its canonical form without head and tail, or the reason why there is none.
inline std::string rewritten(std::string_view list) {
    std::string error;
    std::string xml;
    const auto read = port::readPropertyList(bytesOf(list), error);
    if (!read)
        return error;
    if (!port::writeXMLPropertyList(read.get(), xml, error))
        return "unwritable: " + error;
    const std::size_t first = xml.find("<plist version=\"1.0\">\n") + 22;
    return xml.substr(first, xml.rfind("</plist>") - first);
}

// Holds at the limit, and one past it fails for this reason.
template <typename Make>
void expectLimit(const Make& make, std::size_t limit, const std::string& reason) {
    EXPECT_TRUE(rewritten(make(limit)).starts_with('<')) << reason;
    EXPECT_TRUE(rewritten(make(limit + 1)).ends_with(": " + reason)) << reason;
}

inline std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

inline std::string fileText(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeFile(const std::filesystem::path& path, std::string_view text) {
    std::ofstream(path, std::ios::binary) << text;
}

// A folder of its own, gone with the object.
class TestFolder {
public:
    TestFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "corefoundation-XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder() { std::filesystem::remove_all(path_); }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};
