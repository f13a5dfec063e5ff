#include <port/files.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

#include "host/OwnName.h"
#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr std::size_t kBuffer = std::size_t{64} << 10;
constexpr std::size_t kKernelChunk = 1U << 30;
constexpr off_t kSmallFile = 4096;           // below it a read and a write beat the kernel's own copy
constexpr off_t kLargeFile = off_t{1} << 20; // from here it pays to look at the target before the work
constexpr std::size_t kMaxAttributeNames = std::size_t{64} << 10;
constexpr std::size_t kMaxAttributeValue = std::size_t{64} << 10;
constexpr mode_t kPermissionBits = 0777; // the copy is its maker's: it does not lend his rights to others
constexpr mode_t kWhileCopying = 0600;
constexpr char kNamePrefix[] = ".copy-";
constexpr char kOwnDescriptors[] = "/proc/self/fd";

// A new file that takes the target's name when it is whole. Until then it has no name at all, so that nothing
// is left of it whenever the process ends; where the file system has no nameless files it has one of its own.
class Draft {
public:
    explicit Draft(int folder) : name_(folder, kNamePrefix) {}

    bool open() {
        if (canBeNamedLater())
            fd_.reset(sys::openat(name_.folder(), ".", O_WRONLY | O_TMPFILE, kWhileCopying));
        return fd_ || name_.take([this](const char* name) {
            fd_.reset(
                sys::openat(name_.folder(), name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kWhileCopying));
            return static_cast<bool>(fd_);
        });
    }
    int fd() const { return fd_.get(); }

    // False with EEXIST when the name is taken, or may be.
    bool takeFreeName(const char* target) {
        if (!name_.isTaken())
            return link(target);
        errno = EEXIST;
        return false;
    }
    bool replace(const char* target) {
        return (name_.isTaken() || name_.take([this](const char* name) { return link(name); })) &&
               name_.renameTo(target);
    }

private:
    static bool canBeNamedLater() {
        static const bool reachable = ::access(kOwnDescriptors, X_OK) == 0;
        return reachable;
    }

    // By the descriptor alone, for which older kernels want a privilege, or by its path.
    bool link(const char* target) const {
        if (::linkat(fd_.get(), "", name_.folder(), target, AT_EMPTY_PATH) == 0)
            return true;
        if (errno != ENOENT)
            return false;
        std::array<char, 40> path;
        std::snprintf(path.data(), path.size(), "%s/%d", kOwnDescriptors, fd_.get());
        return ::linkat(AT_FDCWD, path.data(), name_.folder(), target, AT_SYMLINK_FOLLOW) == 0;
    }

    OwnName name_;
    UniqueFd fd_;
};

// `size` is how much is left as far as the file tells; 0 may be what one tells that is made up while it is
// read, so the end is looked for then.
bool copyByHand(int from, off_t size, int to) {
    std::array<char, kBuffer> buffer;
    for (off_t done = 0; size == 0 || done < size;) {
        const ssize_t got = sys::read(from, buffer.data(), buffer.size());
        if (got <= 0)
            return got == 0;
        if (!sys::writeAll(to, buffer.data(), static_cast<std::size_t>(got)))
            return false;
        done += got;
    }
    return true;
}

// What the kernel cannot copy, or takes for empty, is read and written; so is what fails, which then tells why.
bool copyInKernel(int from, off_t size, int to) {
    while (size > 0) {
        const ssize_t copied = sys::copyRange(from, to, kKernelChunk);
        if (copied <= 0)
            return copyByHand(from, size, to);
        size -= copied;
    }
    return true;
}

// What the target's file system refuses of these is left behind, as a copy without it is better than none.
void copyAttributes(int from, int to) {
    const ssize_t needed = ::flistxattr(from, nullptr, 0);
    if (needed <= 0 || static_cast<std::size_t>(needed) > kMaxAttributeNames)
        return;
    std::vector<char> names(static_cast<std::size_t>(needed));
    std::vector<char> value(kMaxAttributeValue);
    const ssize_t size = ::flistxattr(from, names.data(), names.size());
    if (size <= 0)
        return;
    const char* const end = names.data() + size;
    for (const char* name = names.data(); name < end; name += std::strlen(name) + 1) {
        const ssize_t length = ::fgetxattr(from, name, value.data(), value.size());
        if (length >= 0)
            ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(length), 0);
    }
}

bool copyContents(int from, const struct stat& source, int to) {
    const bool copied = source.st_size < kSmallFile ? copyByHand(from, source.st_size, to)
                                                    : copyInKernel(from, source.st_size, to);
    if (!copied)
        return false;
    copyAttributes(from, to);
    static_cast<void>(::fchmod(to, source.st_mode & kPermissionBits));
    const timespec times[2] = {source.st_atim, source.st_mtim};
    static_cast<void>(::futimens(to, times));
    return true;
}

// False with EEXIST when the name is that of the source itself.
bool isAnother(int folder, const char* name, const struct stat& source) {
    struct stat target;
    if (::fstatat(folder, name, &target, AT_SYMLINK_NOFOLLOW) != 0 || target.st_dev != source.st_dev ||
        target.st_ino != source.st_ino)
        return true;
    errno = EEXIST;
    return false;
}

} // namespace
} // namespace port

// Whether the name is free is learned by taking it.
bool port_copy_file(int fromFolder, const char* from, int toFolder, const char* to) {
    using namespace port;
    // Without blocking: a pipe in the place of the file must not hold the copy up before it is recognised.
    const UniqueFd source(sys::openat(fromFolder, from, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    if (!source || ::fstat(source.get(), &status) != 0)
        return false;
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return false;
    }
    if (status.st_size >= kLargeFile && !isAnother(toFolder, to, status))
        return false;
    Draft draft(toFolder);
    if (!draft.open() || !copyContents(source.get(), status, draft.fd()))
        return false;
    return draft.takeFreeName(to) ||
           (errno == EEXIST && isAnother(toFolder, to, status) && draft.replace(to));
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
    OwnName replacement(toFolder, kNamePrefix);
    return errno == EEXIST && ::fstatat(fromFolder, from, &source, AT_SYMLINK_NOFOLLOW) == 0 &&
           isAnother(toFolder, to, source) && replacement.take(make) && replacement.renameTo(to);
}
