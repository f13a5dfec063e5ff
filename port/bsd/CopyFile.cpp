#include <port/files.h>

#include <algorithm>
#include <array>
#include <atomic>
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

#include "bsd/SystemCalls.h"

namespace port {
namespace {

constexpr std::size_t kSmallFile = std::size_t{64}
                                   << 10; // up to here one read and one write beat the kernel's own copy
constexpr std::size_t kKernelChunk = 1U << 30;
constexpr std::size_t kMaxAttributeNames = std::size_t{64} << 10;
constexpr std::size_t kMaxAttributeValue = std::size_t{64} << 10;
constexpr int kMaxNameAttempts = 100;
constexpr mode_t kPermissionBits = 07777;
constexpr mode_t kWhileCopying = 0600;

// A new file beside the target; removed again unless it took the target's name.
class Replacement {
public:
    explicit Replacement(int folder) : folder_(folder) {}
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement() {
        if (!fd_)
            return;
        const int error = errno;
        ::unlinkat(folder_, name_.data(), 0);
        errno = error;
    }

    bool open() {
        static constinit std::atomic<unsigned> serial{0};
        for (int attempt = 0; attempt < kMaxNameAttempts; ++attempt) {
            std::snprintf(name_.data(), name_.size(), ".copy-%d-%u", ::getpid(), serial.fetch_add(1));
            fd_.reset(
                sys::openat(folder_, name_.data(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, kWhileCopying));
            if (fd_ || errno != EEXIST)
                return static_cast<bool>(fd_);
        }
        return false;
    }
    int fd() const { return fd_.get(); }
    bool takeName(const char* target) {
        if (sys::renameat(folder_, name_.data(), folder_, target) != 0)
            return false;
        fd_.reset();
        return true;
    }

private:
    int folder_;
    std::array<char, 40> name_{};
    UniqueFd fd_;
};

bool copySmall(int from, int to) {
    std::array<char, kSmallFile> buffer;
    for (;;) {
        const ssize_t got = sys::read(from, buffer.data(), buffer.size());
        if (got <= 0)
            return got == 0;
        if (!sys::writeAll(to, buffer.data(), static_cast<std::size_t>(got)))
            return false;
        if (static_cast<std::size_t>(got) < buffer.size())
            return true;
    }
}

// Goes on by reading and writing where the kernel cannot copy between the two file systems.
bool copyLarge(int from, int to) {
    for (;;) {
        const ssize_t copied = ::copy_file_range(from, nullptr, to, nullptr, kKernelChunk, 0);
        if (copied == 0)
            return true;
        if (copied < 0 && errno != EINTR)
            return (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP) &&
                   copySmall(from, to);
    }
}

// Attributes that the target's file system refuses are left behind, as a copy without them is better than none.
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
    const bool small = source.st_size < static_cast<off_t>(kSmallFile);
    if (!(small ? copySmall(from, to) : copyLarge(from, to)))
        return false;
    copyAttributes(from, to);
    const timespec times[2] = {source.st_atim, source.st_mtim};
    return ::fchmod(to, source.st_mode & kPermissionBits) == 0 && ::futimens(to, times) == 0;
}

bool isSameFile(int folder, const char* name, const struct stat& source) {
    struct stat target;
    return ::fstatat(folder, name, &target, AT_SYMLINK_NOFOLLOW) == 0 && target.st_dev == source.st_dev &&
           target.st_ino == source.st_ino;
}

} // namespace
} // namespace port

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
    if (isSameFile(toFolder, to, status)) {
        errno = EEXIST;
        return false;
    }
    Replacement replacement(toFolder);
    return replacement.open() && copyContents(source.get(), status, replacement.fd()) &&
           replacement.takeName(to);
}

bool port_copy_link(int fromFolder, const char* from, int toFolder, const char* to) {
    std::array<char, PATH_MAX> target;
    const ssize_t length = ::readlinkat(fromFolder, from, target.data(), target.size() - 1);
    if (length < 0)
        return false;
    target[static_cast<std::size_t>(length)] = '\0';
    struct stat source;
    if (::fstatat(fromFolder, from, &source, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    if (port::isSameFile(toFolder, to, source)) {
        errno = EEXIST;
        return false;
    }
    ::unlinkat(toFolder, to, 0);
    return ::symlinkat(target.data(), toFolder, to) == 0;
}
