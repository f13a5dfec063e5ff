// Who may change what a path names: one tree, and the first item of each path that is not ours.
#include <cerrno>
#include <cstdint>
#include <gtest/gtest.h>
#include <port/trust.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <tuple>
#include <unistd.h>

#include "support/TemporaryFolder.h"

namespace {

constexpr const char* kTree =
    R"sh(cd "$0" && mkdir ours open sticky sticky/ours && chmod 755 ours sticky/ours &&
    touch ours/file open/file sticky/file sticky/ours/file ours/writable && chmod 777 open && chmod 1777 sticky &&
    chmod 644 ours/file sticky/file sticky/ours/file && chmod 666 ours/writable && ln -s ../ours sticky/link &&
    ln -s "$0/open/../ours" ours/detour && ln -s loop loop)sh";
constexpr const char* kForeign =
    R"sh(cd "$0" && mkdir -m 755 sticky/foreign other && touch ours/foreign other/file &&
    mkdir -m 775 own team listed && chgrp 65534 team && ln -s ../ours sticky/planted &&
    chown -h 65534 sticky/foreign other ours/foreign sticky/planted)sh";

bool Make(const char* script, const std::string& folder) {
    const char* const words[] = {"/bin/sh", "-c", script, folder.c_str(), nullptr};
    const pid_t child = fork();
    if (child == 0)
        execv(words[0], const_cast<char* const*>(words));
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

TEST(TrustedPath, NamesTheFirstItemThatOthersMayChange) {
    const TemporaryFolder folder;
    const std::string root = folder.root;
    ASSERT_TRUE(Make(kTree, root));
    // For root these are others' items: the user's and the group's with the number 65534.
    const bool privileged = geteuid() == 0 && Make(kForeign, root);
    // Reads for the owner, its group and the rest as 0775 does, and lets one more user write.
    const std::uint16_t list[] = {2, 0,      1,      7,  0xffff, 0xffff, 2,      7,  65534, 0,      4,
                                  5, 0xffff, 0xffff, 16, 7,      0xffff, 0xffff, 32, 5,     0xffff, 0xffff};
    const bool listed =
        setxattr((root + "/listed").c_str(), "system.posix_acl_access", list, sizeof list, 0) == 0;
    // The path, the item, and what is wrong with it (0: nothing). Who is needed to make it.
    const std::tuple<const char*, const char*, int, bool> rows[] = {
        {"/ours/file", "/ours/file", 0, true},
        {"//ours/./detour/../ours//file", "/open", EPERM, true},
        {"/ours/writable", "/ours/writable", EPERM, true},
        {"/open/file", "/open", EPERM, true},
        {"/sticky/file", "/sticky/file", 0, true},
        {"/sticky/ours/file", "/sticky/ours/file", 0, true},
        {"/sticky/link/file", "/ours/file", 0, true},
        {"/ours/missing/file", "/ours/missing", ENOENT, true},
        {"/loop", "/loop", ELOOP, true},
        {"/sticky/foreign", "/sticky/foreign", EPERM, privileged},
        {"/sticky/planted/file", "/sticky/planted", EPERM, privileged},
        {"/ours/foreign", "/ours/foreign", EPERM, privileged},
        {"/other/file", "/other", EPERM, privileged},
        {"/own", "/own", 0, privileged},
        {"/team", "/team", EPERM, privileged},
        {"/listed", "/listed", EPERM, listed},
    };
    for (const auto& [path, item, error, possible] : rows) {
        char found[4096];
        const bool ours = port_only_ours((root + path).c_str(), found, sizeof found);
        EXPECT_TRUE(!possible || (ours == (error == 0) && (ours || errno == error))) << path << " " << errno;
        EXPECT_TRUE(!possible || root + item == found) << path << " " << found;
    }
    char found[8];
    EXPECT_FALSE(port_only_ours("relative", found, sizeof found));
    EXPECT_EQ(errno, EINVAL);
}

} // namespace
