#include "bsd/Mounts.h"

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <port/UniqueFd.h>
#include <string>
#include <sys/mman.h>

namespace {

TEST(Mounts, LinesOfTheTable) {
    const std::string deep(1023, 'd');
    const std::string filler(20000, 'o');
    const std::string tail = " rw - ext4 /dev/sda rw\n";
    const std::tuple<std::string, std::string, std::string, int> rows[] = {
        {"7 1 8:1 / /mnt rw shared:1 master:2 - vfat /dev/my\\040b rw\n", "/mnt", "fat32", 0},
        {"7 1 8:1 / /a\\040b\\134\\011 rw - a-very-very-very-long-file-system x x\n", "/a b\\\t",
         "a-very-very-very-long-file-syst", 0},
        {"7 1 8:1 / /odd\\04\\x" + tail, "/odd\\04\\x", "ext4", 0},
        {"7 1 8:1 / " + deep + tail, deep, "ext4", 0},
        {"7 1 8:1 / " + deep + "d" + tail, "", "", ENAMETOOLONG},
        {filler + "\n7 1 8:1 / /mnt rw - ext4 x " + filler + "\n", "/mnt", "ext4", 0},
        {"7 1 8:1 " + filler + " /mnt" + tail, "", "", ENOENT},
        {"70 1 8:1 / /no" + tail + "7x 1 8:1 / /no" + tail, "", "", ENOENT},
        {"7 1 8:1 / /mnt rw - ext4 x rw", "", "", ENOENT},
        {"7 1 8:1 / /mnt rw shared:1\n", "", "", ENOENT}};
    for (const auto& [line, mountPoint, type, error] : rows) {
        const std::string text = "6 1 8:1 / /other rw - ext4 x rw\n" + line;
        const port::UniqueFd table(memfd_create("mounts", MFD_CLOEXEC));
        ASSERT_EQ(pwrite(table.get(), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
        port_statfs_t result;
        errno = 0;
        port::readMount(table.get(), 7, result);
        EXPECT_EQ(result.f_mntonname, mountPoint) << line.substr(0, 60);
        EXPECT_EQ(result.f_fstypename, type) << line.substr(0, 60);
        EXPECT_EQ(errno, error) << line.substr(0, 60);
        EXPECT_EQ(result.f_mntfromname == std::string("/dev/my b"), type == "fat32");
    }
}

TEST(Mounts, AgreeWithTheSystemsTool) {
    port_statfs_t result;
    for (const std::string path : {"/", "/proc", "/dev", "/dev/shm", "/tmp", "."}) {
        char line[PORT_MOUNT_NAME_SIZE] = {};
        FILE* const tool = popen(("stat --format=%m " + path).c_str(), "re");
        EXPECT_NE(std::fgets(line, sizeof line, tool), nullptr) << path;
        ASSERT_EQ(pclose(tool), 0) << path;
        ASSERT_EQ(port_statfs(path.c_str(), &result), 0) << path;
        EXPECT_EQ(result.f_mntonname + std::string("\n"), line) << path;
    }
    EXPECT_EQ(port_statfs("/nowhere/at all", &result), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_STREQ(result.f_mntonname, "");
}

} // namespace
