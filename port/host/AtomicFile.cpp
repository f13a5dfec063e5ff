#include "host/AtomicFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <initializer_list>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "host/OwnName.h"
#include "host/SystemCalls.h"
#include <port/UniqueFd.h>

namespace port {
namespace {

constexpr int kMaxLinks = 16;
constexpr mode_t kNewFileMode = 0600;
constexpr mode_t kPermissionBits = 0777;

// The new content, on its way to the target's name.
class Temporary {
public:
    Temporary(int folder, const std::string& target) : name_(folder, prefix(target)) {
        name_.take([&](const char* name) {
            fd_.reset(sys::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kNewFileMode));
            return static_cast<bool>(fd_);
        });
    }

    static std::string prefix(const std::string& target) { return "." + target + ".tmp-"; }

    bool fill(std::string_view bytes, const struct stat& like) {
        if (!fd_ || !sys::writeAll(fd_.get(), bytes.data(), bytes.size()))
            return false;
        // Only root can give a file away; for others it is theirs already, or becomes theirs.
        if (like.st_uid != ::geteuid() && ::fchown(fd_.get(), like.st_uid, like.st_gid) != 0 &&
            errno != EPERM)
            return false;
        return ::fchmod(fd_.get(), like.st_mode & kPermissionBits) == 0 && sys::fsync(fd_.get()) == 0;
    }
    bool takeName(const std::string& target) { return name_.renameTo(target.c_str()); }

private:
    OwnName name_;
    UniqueFd fd_;
};

UniqueFd openFolder(const FilePlace& place) {
    return UniqueFd(sys::open(place.folder.empty() ? "." : place.folder.c_str(), O_RDONLY | O_DIRECTORY));
}

// The owner and the permissions that the new content is to have. False when something other than a file has the
// name.
bool describe(int folder, const std::string& name, struct stat& status) {
    if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        status = {};
        status.st_uid = ::geteuid();
        status.st_mode = kNewFileMode;
        return errno == ENOENT;
    }
    if (S_ISREG(status.st_mode))
        return true;
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return false;
}

FilePlace split(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return {"", path};
    return {path.substr(0, slash + 1), path.substr(slash + 1)};
}

// Removes the files whose names begin with one of these. False with errno when one stays.
bool removeNames(const FilePlace& place, std::initializer_list<std::string> starts) {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(
        ::opendir(place.folder.empty() ? "." : place.folder.c_str()), ::closedir);
    if (folder == nullptr)
        return false;
    int error = 0;
    while (const dirent* entry = ::readdir(folder.get())) {
        const std::string_view name = entry->d_name;
        const bool isMeant = std::any_of(starts.begin(), starts.end(),
                                         [&](const std::string& start) { return name.starts_with(start); });
        if (isMeant && ::unlinkat(::dirfd(folder.get()), entry->d_name, 0) != 0)
            error = errno;
    }
    errno = error;
    return error == 0;
}

// Of the result of an unlink.
bool isGone(int result) {
    return result == 0 || errno == ENOENT;
}

} // namespace

bool resolvePlace(const std::string& path, FilePlace& place) {
    std::string current = path;
    std::array<char, PATH_MAX> link;
    for (int links = 0; links <= kMaxLinks; ++links) {
        place = split(current);
        if (place.name.empty() || place.name == "." || place.name == "..") {
            errno = EINVAL;
            return false;
        }
        const ssize_t length = ::readlink(current.c_str(), link.data(), link.size());
        if (length < 0) // not a link, or nothing there yet
            return errno == EINVAL || errno == ENOENT;
        if (static_cast<std::size_t>(length) == link.size()) {
            errno = ENAMETOOLONG;
            return false;
        }
        const std::string target(link.data(), static_cast<std::size_t>(length));
        current = target.starts_with('/') ? target : place.folder + target;
    }
    errno = ELOOP;
    return false;
}

bool replaceFile(const std::string& path, std::string_view bytes) {
    FilePlace place;
    if (!resolvePlace(path, place))
        return false;
    const UniqueFd folder = openFolder(place);
    struct stat status;
    if (!folder || !describe(folder.get(), place.name, status))
        return false;
    Temporary temporary(folder.get(), place.name);
    return temporary.fill(bytes, status) && temporary.takeName(place.name) && sys::fsync(folder.get()) == 0;
}

void removeAbandonedTemporaries(const std::string& path) {
    FilePlace place;
    if (resolvePlace(path, place))
        removeNames(place, {Temporary::prefix(place.name)});
}

bool removeWithCopies(const std::string& path, const std::string& suffix) {
    FilePlace place;
    if (!resolvePlace(path, place) ||
        !removeNames(place, {Temporary::prefix(place.name), place.name + suffix}) ||
        !isGone(::unlink((place.folder + place.name).c_str())) || !isGone(::unlink(path.c_str())))
        return false;
    const UniqueFd folder = openFolder(place);
    return folder && sys::fsync(folder.get()) == 0;
}

bool moveAside(const std::string& path, const std::string& suffix) {
    FilePlace place;
    if (!resolvePlace(path, place))
        return false;
    const UniqueFd folder = openFolder(place);
    return folder &&
           sys::renameat(folder.get(), place.name.c_str(), folder.get(), (place.name + suffix).c_str()) ==
               0 &&
           sys::fsync(folder.get()) == 0;
}

bool makeFolders(const std::string& folder) {
    for (std::size_t end = folder.find('/', 1);; end = folder.find('/', end + 1)) {
        const std::string part = folder.substr(0, end);
        if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            return false;
        if (end == std::string::npos)
            return true;
    }
}

} // namespace port
