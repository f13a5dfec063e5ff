#include "bsd/FileAttributes.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <port/UniqueFd.h>
#include <port/files.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "host/SystemCalls.h"

namespace {

constexpr std::size_t kMaxAttributeNames = std::size_t{64} << 10;
constexpr std::size_t kMaxAttributeValue = std::size_t{64} << 10;
constexpr int kImmutable = FS_IMMUTABLE_FL | FS_APPEND_FL;

// Only a regular file is opened: opening a device or a pipe would do something to it.
port::UniqueFd openRegular(int folder, const char* name) {
    struct stat status;
    if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode))
        return {};
    return port::UniqueFd(port::sys::openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
}

// Others grant rights (a program's capabilities) or belong to the file system.
bool isGivenOn(std::string_view attribute) {
    return attribute.starts_with("user.") || attribute.starts_with("system.posix_acl_");
}

} // namespace

void port::copyAttributes(int from, int to) {
    const ssize_t needed = ::flistxattr(from, nullptr, 0);
    if (needed <= 0 || static_cast<std::size_t>(needed) > kMaxAttributeNames)
        return;
    const auto names = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(needed));
    const auto value = std::make_unique_for_overwrite<char[]>(kMaxAttributeValue);
    const ssize_t size = ::flistxattr(from, names.get(), static_cast<std::size_t>(needed));
    if (size <= 0)
        return;
    const char* const end = names.get() + size;
    for (const char* name = names.get(); name < end; name += std::strlen(name) + 1) {
        const ssize_t length =
            isGivenOn(name) ? ::fgetxattr(from, name, value.get(), kMaxAttributeValue) : -1;
        if (length >= 0)
            ::fsetxattr(to, name, value.get(), static_cast<std::size_t>(length), 0);
    }
}

unsigned port_file_flags(int folder, const char* name) {
    struct statx status;
    if (::statx(folder, name, 0, STATX_TYPE, &status) != 0)
        return 0;
    return (status.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0 ? SF_IMMUTABLE : 0;
}

bool port_clear_file_flags(int folder, const char* name) {
    const port::UniqueFd file = openRegular(folder, name);
    int flags = 0;
    if (!file || ::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0)
        return false;
    flags &= ~kImmutable;
    return ::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) == 0;
}

bool port_birth_time(int folder, const char* name, std::int64_t* seconds) {
    struct statx status;
    if (::statx(folder, name, 0, STATX_BTIME | STATX_CTIME, &status) != 0)
        return false;
    *seconds = (status.stx_mask & STATX_BTIME) != 0 ? status.stx_btime.tv_sec : status.stx_ctime.tv_sec;
    return true;
}

int port_setxattr(const char* path, const char* name, const void* value, std::size_t size, std::uint32_t,
                  int) {
    const std::string userName = std::string("user.") + name;
    return ::setxattr(path, userName.c_str(), value, size, 0);
}
