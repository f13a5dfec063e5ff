#include "Support.h"

#include <array>

namespace {

TEST(CFURL, PathsLoseTrailingSlashesAndSplitAtTheLastComponent) {
    const std::string here = std::filesystem::current_path().string();
    const std::array<std::string, 4> rows[] = {
        {"/", "/", "/", "(null)"},
        {"/a/b.app/", "/a/b.app", "/a", "b.app"},
        {"/\xC3\xA9//x y", "/\xC3\xA9//x y", "/\xC3\xA9", "x y"},
        {"..", here + "/..", here, ".."},
        {"/a\xFF/b", "(null)", "(null)", "b"},
    };
    for (const auto& [path, whole, parent, last] : rows) {
        const URL url = port::makeURL(path, false);
        EXPECT_EQ(whole, pathOf(url));
        EXPECT_EQ(last, textOf(String(CFURLCopyLastPathComponent(url.get())))) << path;
        const URL above(CFURLCreateCopyDeletingLastPathComponent(nullptr, url.get()));
        EXPECT_EQ(parent, pathOf(above)) << path;
        EXPECT_TRUE(CFURLHasDirectoryPath(above.get()) && !CFURLHasDirectoryPath(url.get())) << path;
    }
    EXPECT_FALSE(port::makeURL("", false));
    EXPECT_FALSE(URL(CFURLCreateFromFileSystemRepresentation(nullptr, bytesOf("/a\0b").data(), 4, false)));

    const URL folder = port::makeURL("/x", true);
    UInt8 buffer[3] = "?";
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(folder.get(), true, buffer, 3));
    EXPECT_STREQ("/x", reinterpret_cast<char*>(buffer));
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(folder.get(), true, buffer, 2));
    EXPECT_EQ(0, buffer[0]);
}

} // namespace
