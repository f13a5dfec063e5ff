#include "bsd/Mounts.h"

#include "host/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <port/UniqueFd.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <utility>

namespace port {
namespace {

// Of a line only its beginning is kept: the options of a mount may be long, but they come last.
constexpr std::size_t kLineSize = 8192;
constexpr std::size_t kReadSize = 4096;

class LineReader {
public:
    explicit LineReader(int fd) : fd_(fd) {}

    // The next whole line, cut to kLineSize bytes; valid until the next call. False at the end.
    bool next(std::string_view& line) {
        std::size_t length = 0;
        for (char character; take(character);) {
            if (character == '\n') {
                line = {line_, length};
                return true;
            }
            if (length < kLineSize)
                line_[length++] = character;
        }
        return false;
    }

private:
    bool take(char& character) {
        if (position_ == filled_) {
            const ssize_t got = sys::read(fd_, buffer_, kReadSize);
            if (got <= 0)
                return false;
            filled_ = static_cast<std::size_t>(got);
            position_ = 0;
        }
        character = buffer_[position_++];
        return true;
    }

    int fd_;
    std::size_t position_ = 0;
    std::size_t filled_ = 0;
    char buffer_[kReadSize];
    char line_[kLineSize];
};

// The next field of a line, fields being separated by one blank; empty at the end.
std::string_view takeField(std::string_view& line) {
    const std::size_t length = std::min(line.find(' '), line.size());
    const std::string_view field = line.substr(0, length);
    line.remove_prefix(std::min(length + 1, line.size()));
    return field;
}

bool isNumber(std::string_view field, std::uint64_t wanted) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), number);
    return error == std::errc{} && end == field.data() + field.size() && number == wanted;
}

// Blank, tab, newline and backslash stand in the table as a backslash and three octal digits. False when the
// text does not fit.
bool decode(std::string_view escaped, char* out, std::size_t size) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < escaped.size(); ++length) {
        if (length == size - 1)
            return false;
        unsigned code = 0;
        const char* const digits = escaped.data() + i + 1;
        const bool isEscape = escaped[i] == '\\' && escaped.size() - i > 3 &&
                              std::from_chars(digits, digits + 3, code, 8).ptr == digits + 3;
        out[length] = isEscape ? static_cast<char>(code) : escaped[i];
        i += isEscape ? 4 : 1;
    }
    out[length] = '\0';
    return true;
}

void clear(port_statfs_t& result) {
    result.f_mntonname[0] = result.f_mntfromname[0] = result.f_fstypename[0] = '\0';
}

bool fill(std::string_view mountPoint, std::string_view type, std::string_view source,
          port_statfs_t& result) {
    if (mountPoint.empty() || type.empty()) {
        errno = ENOENT;
        return false;
    }
    if (!decode(mountPoint, result.f_mntonname, sizeof result.f_mntonname)) {
        result.f_mntonname[0] = '\0';
        errno = ENAMETOOLONG;
        return false;
    }
    if (!decode(source, result.f_mntfromname, sizeof result.f_mntfromname))
        result.f_mntfromname[0] = '\0';
    if (type == "vfat")
        type = "fat32";
    result.f_fstypename[type.copy(result.f_fstypename, sizeof result.f_fstypename - 1)] = '\0';
    return true;
}

// The kinds of file system that a system's own files are kept on, by the number that the kernel has for them.
std::string_view typeOf(const char* path) {
    constexpr std::pair<unsigned long, std::string_view> kTypes[] = {
        {BTRFS_SUPER_MAGIC, "btrfs"}, {EXT4_SUPER_MAGIC, "ext4"},
        {F2FS_SUPER_MAGIC, "f2fs"},   {FUSE_SUPER_MAGIC, "fuse"},
        {MSDOS_SUPER_MAGIC, "fat32"}, {NFS_SUPER_MAGIC, "nfs"},
        {RAMFS_MAGIC, "ramfs"},       {OVERLAYFS_SUPER_MAGIC, "overlay"},
        {SQUASHFS_MAGIC, "squashfs"}, {TMPFS_MAGIC, "tmpfs"},
        {XFS_SUPER_MAGIC, "xfs"}};
    struct statfs status = {};
    if (statfs(path, &status) == 0)
        for (const auto& [number, name] : kTypes)
            if (number == static_cast<unsigned long>(status.f_type))
                return name;
    return "unknown";
}

bool readMountId(const char* path, std::uint64_t& id) {
    struct statx status = {};
    if (statx(AT_FDCWD, path, AT_STATX_DONT_SYNC, STATX_MNT_ID, &status) != 0)
        return false;
    id = status.stx_mnt_id;
    if ((status.stx_mask & STATX_MNT_ID) != 0)
        return true;
    errno = ENOTSUP;
    return false;
}

// The volume of a chroot's "/" is mounted on a folder outside of it, which no table tells inside: what is on
// it is below "/", as far as this process can see.
bool readRootMount(const char* path, std::uint64_t id, port_statfs_t& result) {
    const int error = errno;
    std::uint64_t rootId = 0;
    const bool isBelowRoot = readMountId("/", rootId) && rootId == id;
    errno = error;
    return isBelowRoot && fill("/", typeOf(path), "", result);
}

} // namespace

bool readMount(int table, std::uint64_t id, port_statfs_t& result) {
    clear(result);
    LineReader lines(table);
    for (std::string_view line; lines.next(line);) {
        if (!isNumber(takeField(line), id))
            continue;
        takeField(line); // the parent's id
        takeField(line); // the device
        takeField(line); // what of the volume is mounted
        const std::string_view mountPoint = takeField(line);
        while (!line.empty() && takeField(line) != "-") { // optional fields stand between
        }
        const std::string_view type = takeField(line);
        return fill(mountPoint, type, takeField(line), result);
    }
    errno = ENOENT;
    return false;
}

} // namespace port

// The kernel tells the mount of a path by its id, which is exact where names are not: with mounts on top of
// one another, bind mounts, and subvolumes that have device numbers of their own.
int port_statfs(const char* path, port_statfs_t* result) {
    port::clear(*result);
    std::uint64_t id = 0;
    if (!port::readMountId(path, id))
        return -1;
    const port::UniqueFd table(port::sys::open("/proc/self/mountinfo", O_RDONLY));
    if (table && port::readMount(table.get(), id, *result))
        return 0;
    return port::readRootMount(path, id, *result) ? 0 : -1;
}
