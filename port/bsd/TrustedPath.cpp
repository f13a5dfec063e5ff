#include <port/bsd.h>
#include <port/trust.h>
#include <port/user.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace port {
namespace {

constexpr int kMaxLinks = 40; // as many as the system itself follows

bool isOurs(uid_t user) {
    return user == ::geteuid() || user == 0;
}

// True when the group is the user's alone, as far as the user database tells: it does not say whose primary
// group a group is, but one of the user's name is made for this user.
bool isOwnGroup(gid_t group, uid_t user) {
    const auto owner = userEntry(user);
    if (!owner || owner->pw_gid != group)
        return false;
    const auto found = groupEntry(group);
    if (!found || std::strcmp(found->gr_name, owner->pw_name) != 0)
        return false;
    char** member = found->gr_mem;
    while (*member != nullptr && std::strcmp(*member, owner->pw_name) == 0)
        ++member;
    return *member == nullptr;
}

// With a list the group's bits are those of its mask, and may be another user's.
bool hasAccessList(const std::string& path) {
    return ::lgetxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) >= 0 ||
           (errno != ENODATA && errno != ENOTSUP);
}

bool othersMayWrite(const std::string& path, const struct stat& status) {
    if ((status.st_mode & S_IWOTH) != 0)
        return true;
    return (status.st_mode & S_IWGRP) != 0 &&
           ((!isOwnGroup(status.st_gid, ::geteuid()) && !isOwnGroup(status.st_gid, 0)) ||
            hasAccessList(path));
}

// The way to an item, one step after the other from the root.
class Way {
public:
    explicit Way(std::string_view path) : left_(path) {}

    // False with errno: EPERM when others may change what `item()` names.
    bool walk() {
        if (left_.empty() || left_.front() != '/')
            return fail(EINVAL);
        if (!lookAgain(""))
            return false;
        while (!left_.empty())
            if (!step())
                return false;
        return true;
    }
    const std::string& item() const { return item_; }

private:
    static bool fail(int error) {
        errno = error;
        return false;
    }

    bool step() {
        const std::size_t length = std::min(left_.find('/'), left_.size());
        const std::string name = left_.substr(0, length);
        left_.erase(0, std::min(length + 1, left_.size()));
        if (name.empty() || name == ".")
            return true;
        if (name == "..") {
            // What was walked holds no link, so its parent is the folder before it in the text.
            return lookAgain(folder_.substr(0, folder_.rfind('/')));
        }
        return look(folder_ + "/" + name);
    }

    bool look(const std::string& path) {
        item_ = path;
        struct stat status;
        if (::lstat(path.c_str(), &status) != 0)
            return false;
        const bool foreign = parentIsSticky_ && status.st_dev != device_;
        if (!isOurs(status.st_uid) || foreign)
            return fail(EPERM);
        if (S_ISLNK(status.st_mode))
            return followLink(path);
        const bool sticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
        if (!sticky && othersMayWrite(path, status))
            return fail(EPERM);
        parentIsSticky_ = sticky;
        device_ = status.st_dev;
        folder_ = path == "/" ? "" : path;
        return true;
    }

    bool followLink(const std::string& path) {
        char target[PATH_MAX];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0)
            return false;
        if (++links_ > kMaxLinks)
            return fail(ELOOP);
        const std::string_view text(target, static_cast<std::size_t>(length));
        left_.insert(0, std::string(text) + "/");
        return !text.starts_with('/') || lookAgain("");
    }

    // At a folder that was walked already; empty for the root.
    bool lookAgain(const std::string& folder) {
        parentIsSticky_ = false;
        return look(folder.empty() ? "/" : folder);
    }

    std::string left_;   // what is to be walked yet
    std::string folder_; // what was walked; empty for the root
    std::string item_;   // what was looked at last
    bool parentIsSticky_ = false;
    dev_t device_ = 0;
    int links_ = 0;
};

} // namespace
} // namespace port

bool port_only_ours(const char* path, char* item, std::size_t size) {
    port::Way way(path);
    const bool ours = way.walk();
    const int error = errno;
    strlcpy(item, way.item().c_str(), size);
    errno = error;
    return ours;
}
