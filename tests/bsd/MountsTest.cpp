#include "bsd/Mounts.h"

#include <cerrno>
#include <cstdio>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

#include <port/UniqueFd.h>

namespace {

// A mount table in memory, to be read from its beginning.
port::UniqueFd table(const std::string& text) {
    port::UniqueFd fd(memfd_create("mounts", MFD_CLOEXEC));
    EXPECT_EQ(write(fd.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    lseek(fd.get(), 0, SEEK_SET);
    return fd;
}

TEST(Mounts, LinesOfTheTable) {
    const std::string deep(1023, 'd');
    struct Row {
        std::string line, mountPoint, type;
        int error = 0;
    };
    const std::string tail = " rw - ext4 /dev/sda rw\n";
    const std::string filler(20000, 'o');
    const Row rows[] = {
        {"7 1 8:1 / /mnt rw shared:1 master:2 - vfat /dev/sdb rw\n", "/mnt", "fat32"},
        {"7 1 8:1 /a\\040b /my\\040disk\\134\\011 rw - fuse.a-long-file-system x rw\n", "/my disk\\\t",
         "fuse.a-long-fil"},
        {"7 1 8:1 / /odd\\04\\x" + tail, "/odd\\04\\x", "ext4"},
        {"7 1 8:1 / " + deep + tail, deep, "ext4"},
        {"7 1 8:1 / " + deep + "d" + tail, "", "", ENAMETOOLONG},
        {filler + "\n7 1 8:1 / /mnt rw - ext4 x " + filler + "\n", "/mnt", "ext4"},
        {"7 1 8:1 " + filler + " /mnt" + tail, "", "", ENOENT},
        {"70 1 8:1 / /no" + tail + "7x 1 8:1 / /no" + tail, "", "", ENOENT},
        {"7 1 8:1 / /mnt rw - ext4 x rw", "", "", ENOENT},
        {"7 1 8:1 / /mnt rw shared:1\n", "", "", ENOENT},
    };
    for (const Row& row : rows) {
        port_statfs_t result;
        errno = 0;
        port::readMount(table("6 1 8:1 / /other rw - ext4 x rw\n" + row.line).get(), 7, result);
        EXPECT_EQ(result.f_mntonname, row.mountPoint) << row.line.substr(0, 60);
        EXPECT_EQ(result.f_fstypename, row.type) << row.line.substr(0, 60);
        EXPECT_EQ(errno, row.error) << row.line.substr(0, 60);
    }
}

TEST(Mounts, AgreeWithTheSystemsTool) {
    for (const std::string path : {"/", "/proc", "/dev/null", "/dev/shm", "/tmp", "/usr/bin", "."}) {
        const std::string command = "stat --format=%m " + path;
        const std::unique_ptr<FILE, int (*)(FILE*)> tool(popen(command.c_str(), "re"), pclose);
        char line[PORT_MOUNT_NAME_SIZE] = {};
        ASSERT_NE(std::fgets(line, sizeof line, tool.get()), nullptr);
        port_statfs_t result;
        ASSERT_EQ(port_statfs(path.c_str(), &result), 0) << path;
        EXPECT_EQ(result.f_mntonname + std::string("\n"), line) << path;
    }
    port_statfs_t result;
    EXPECT_EQ(port_statfs("/nowhere/at all", &result), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_STREQ(result.f_mntonname, "");
}

} // namespace
