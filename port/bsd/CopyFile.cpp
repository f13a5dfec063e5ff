#include <port/files.h>

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <limits>
#include <port/DataCopy.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "bsd/Draft.h"
#include "bsd/FileAttributes.h"
#include "host/AtomicFile.h"
#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr off_t kLargeFile = off_t{1} << 20; // from here it pays to look at the target before the work
constexpr mode_t kPermissionBits = 0777;     // the copy is its maker's: it does not lend his rights to others
constexpr mode_t kWhileCopying = 0600;
constexpr mode_t kNewFileMode = 0666;
constexpr char kOwnPrefix[] = ".copy-";

// Without blocking: a pipe in the place of the file must not hold the copy up before it is recognised.
bool openSource(int folder, const char* name, UniqueFd& source, struct stat& status) {
    source.reset(sys::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!source || ::fstat(source.get(), &status) != 0)
        return false;
    errno = EINVAL;
    return S_ISREG(status.st_mode);
}

// With `permissions` those of the source are set, too. A size of 0 may be what a file tells that is made up while it
// is read, so the end is looked for then.
bool copyContents(int from, const struct stat& source, int to, bool permissions) {
    DataCopy data(from, source, to);
    if (data.move(source.st_size != 0 ? source.st_size : std::numeric_limits<off_t>::max()) < 0 ||
        !data.finish())
        return false;
    copyAttributes(from, to);
    if (permissions)
        static_cast<void>(::fchmod(to, source.st_mode & kPermissionBits));
    const timespec times[2] = {source.st_atim, source.st_mtim};
    static_cast<void>(::futimens(to, times));
    return true;
}

// False with EEXIST when the name is that of the source itself, with EINVAL when it is that of a folder, a pipe or a
// device.
bool mayReplace(int folder, const char* name, const struct stat& source) {
    struct stat target;
    if (::fstatat(folder, name, &target, AT_SYMLINK_NOFOLLOW) != 0)
        return true;
    const bool same = target.st_dev == source.st_dev && target.st_ino == source.st_ino;
    errno = same ? EEXIST : EINVAL;
    return !same && (S_ISREG(target.st_mode) || S_ISLNK(target.st_mode));
}

// An existing file, to be described; its content is not read. False when the name is not that of a file, or when it
// is there and cannot be opened.
bool openFormer(int folder, const char* name, UniqueFd& former, struct stat& status) {
    former.reset(sys::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    if (!former)
        return errno == ENOENT;
    if (::fstat(former.get(), &status) != 0)
        return false;
    errno = EINVAL;
    return S_ISREG(status.st_mode);
}

// False with EPERM when the owner or the group cannot be given on.
bool takeAfter(const Draft& draft, int former, const struct stat& status) {
    struct stat now;
    if (::fstat(draft.fd(), &now) != 0)
        return false;
    if ((now.st_uid != status.st_uid || now.st_gid != status.st_gid) &&
        ::fchown(draft.fd(), status.st_uid, status.st_gid) != 0)
        return false;
    copyAttributes(former, draft.fd());
    return ::fchmod(draft.fd(), status.st_mode & kPermissionBits) == 0;
}

} // namespace
} // namespace port

// Whether the name is free is learned by taking it.
bool port_copy_file(int fromFolder, const char* from, int toFolder, const char* to) {
    using namespace port;
    UniqueFd source;
    struct stat status;
    if (!openSource(fromFolder, from, source, status))
        return false;
    if (status.st_size >= kLargeFile && !mayReplace(toFolder, to, status))
        return false;
    Draft draft(toFolder, to);
    if (!draft.open(kWhileCopying) || !copyContents(source.get(), status, draft.fd(), true))
        return false;
    return draft.takeFreeName() || (errno == EEXIST && mayReplace(toFolder, to, status) && draft.replace());
}

// To be told the permissions twice costs a call a file.
bool port_copy_new_file(int fromFolder, const char* from, int toFolder, const char* to, mode_t granted) {
    using namespace port;
    UniqueFd source;
    struct stat status;
    if (!openSource(fromFolder, from, source, status))
        return false;
    const mode_t wanted = status.st_mode & kPermissionBits;
    const mode_t made = wanted | kWhileCopying;
    const UniqueFd target(sys::openat(toFolder, to, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, made));
    if (!target)
        return false;
    if (copyContents(source.get(), status, target.get(), (made & granted) != wanted))
        return true;
    const int error = errno;
    ::unlinkat(toFolder, to, 0);
    errno = error;
    return false;
}

bool port_make_own_folder(int folder, char (&name)[kPortOwnNameSize]) {
    port::OwnName own(folder, port::kOwnPrefix);
    const bool made = own.take([folder](const char* free) { return ::mkdirat(folder, free, 0777) == 0; });
    strlcpy(name, own.release().c_str(), sizeof name);
    return made;
}

bool port_copy_link(int fromFolder, const char* from, int toFolder, const char* to) {
    using namespace port;
    std::array<char, PATH_MAX> text;
    const ssize_t length = ::readlinkat(fromFolder, from, text.data(), text.size() - 1);
    if (length < 0)
        return false;
    text[static_cast<std::size_t>(length)] = '\0';
    const auto make = [&](const char* name) { return ::symlinkat(text.data(), toFolder, name) == 0; };
    if (make(to))
        return true;
    struct stat source;
    const std::string target(to);
    OwnName replacement(toFolder, target.substr(0, target.rfind('/') + 1) + kOwnPrefix);
    return errno == EEXIST && ::fstatat(fromFolder, from, &source, AT_SYMLINK_NOFOLLOW) == 0 &&
           mayReplace(toFolder, to, source) && replacement.take(make) && replacement.renameTo(to);
}

bool port_replace_file(const char* path, const void* bytes, std::size_t size, bool flush) {
    using namespace port;
    FilePlace place;
    if (!resolvePlace(path, place))
        return false;
    const UniqueFd folder(
        sys::open(place.folder.empty() ? "." : place.folder.c_str(), O_RDONLY | O_DIRECTORY));
    UniqueFd former;
    struct stat status;
    if (!folder || !openFormer(folder.get(), place.name.c_str(), former, status))
        return false;
    Draft draft(folder.get(), place.name.c_str());
    if (!draft.open(former ? kWhileCopying : kNewFileMode) || !sys::writeAll(draft.fd(), bytes, size) ||
        (former && !takeAfter(draft, former.get(), status)) || (flush && sys::fsync(draft.fd()) != 0))
        return false;
    if (former ? !draft.replace() : !draft.takeFreeName() && (errno != EEXIST || !draft.replace()))
        return false;
    return !flush || sys::fsync(folder.get()) == 0;
}
