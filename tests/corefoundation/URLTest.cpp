#include "Support.h"

#include <gtest/gtest.h>

namespace {

using URL = port::CFRef<CFURLRef>;
using String = port::CFRef<CFStringRef>;

URL makeURL(std::string_view path) {
    return URL(CFURLCreateFromFileSystemRepresentation(nullptr, bytesOf(path).data(),
                                                       static_cast<CFIndex>(path.size()), false));
}

std::string text(const String& string) {
    std::string utf8;
    return string && port::copyUtf8(string.get(), utf8) ? utf8 : "(null)";
}

std::string pathOf(const URL& url) {
    return url ? text(String(CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle))) : "(null)";
}

TEST(CFURL, PathsLoseTrailingSlashesAndSplitAtTheLastComponent) {
    const std::string here = std::filesystem::current_path().string();
    const struct {
        std::string_view path;
        std::string whole, parent, last;
    } rows[] = {
        {"/", "/", "/", "(null)"},
        {"/a/b.app/", "/a/b.app", "/a", "b.app"},
        {"/a//b", "/a//b", "/a", "b"},
        {"/\xC3\xA9/x y", "/\xC3\xA9/x y", "/\xC3\xA9", "x y"},
        {"a/b/", here + "/a/b", here + "/a", "b"},
        {"..", here + "/..", here, ".."},
        {"/a\xFF/b", "(null)", "(null)", "b"},
        {std::string_view("/a\0b", 4), "(null)", "", ""},
    };
    for (const auto& row : rows) {
        const URL url = makeURL(row.path);
        EXPECT_EQ(row.whole, pathOf(url)) << row.path;
        if (!url)
            continue;
        EXPECT_EQ(row.last, text(String(CFURLCopyLastPathComponent(url.get())))) << row.path;
        const URL parent(CFURLCreateCopyDeletingLastPathComponent(nullptr, url.get()));
        EXPECT_EQ(row.parent, pathOf(parent)) << row.path;
        EXPECT_TRUE(CFURLHasDirectoryPath(parent.get())) << row.path;
    }
    EXPECT_FALSE(makeURL(""));
}

TEST(CFURL, KeepsTheDirectoryFlagAndRefusesTextWithoutUtf8) {
    const URL folder(CFURLCreateWithFileSystemPath(nullptr, CFSTR("/x"), kCFURLPOSIXPathStyle, true));
    EXPECT_TRUE(CFURLHasDirectoryPath(folder.get()));
    EXPECT_FALSE(CFURLHasDirectoryPath(makeURL("/x/").get()));
    EXPECT_FALSE(CFEqual(folder.get(), makeURL("/x").get()));
    const String lone(__CFString::make(std::u16string(1, char16_t{0xDC00})));
    EXPECT_EQ(nullptr, CFURLCreateWithFileSystemPath(nullptr, lone.get(), kCFURLPOSIXPathStyle, true));
    UInt8 buffer[3] = "?";
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(folder.get(), true, buffer, 3));
    EXPECT_STREQ("/x", reinterpret_cast<char*>(buffer));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(folder.get(), true, buffer, 2));
    EXPECT_EQ(0, buffer[0]);
}

} // namespace
