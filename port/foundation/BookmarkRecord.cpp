#include "foundation/BookmarkRecord.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace port {
namespace {

constexpr std::string_view kMark = "BOOKMARK";
constexpr std::size_t kHeaderSize = 48;
constexpr std::size_t kChecksumSize = 8;
constexpr std::uint32_t kNanosecondsASecond = 1'000'000'000;

template <typename Number>
void putNumber(std::string& bytes, Number number) {
    for (std::size_t at = 0; at < sizeof number; ++at)
        bytes += static_cast<char>(static_cast<std::uint64_t>(number) >> (8 * at));
}

// Takes the number at the beginning of the bytes, which are long enough, off them.
template <typename Number>
void takeNumber(std::string_view& bytes, Number& number) {
    std::uint64_t value = 0;
    for (std::size_t at = 0; at < sizeof number; ++at)
        value |= std::uint64_t{static_cast<unsigned char>(bytes[at])} << (8 * at);
    number = static_cast<Number>(value);
    bytes.remove_prefix(sizeof number);
}

bool isSound(const BookmarkRecord& record) {
    const std::uint32_t nanoseconds = record.file.birthNanoseconds;
    return record.path.starts_with('/') && record.path.find('\0') == std::string::npos &&
           (nanoseconds < kNanosecondsASecond || nanoseconds == FileIdentity::kUnknownBirth);
}

} // namespace

std::optional<FileIdentity> describeFile(int folder, const char* path, int flags) {
    struct statx status;
    if (::statx(folder, path, flags, STATX_INO | STATX_BTIME, &status) != 0)
        return std::nullopt;
    FileIdentity file;
    file.device = makedev(status.stx_dev_major, status.stx_dev_minor);
    file.inode = status.stx_ino;
    if ((status.stx_mask & STATX_BTIME) != 0) {
        file.birthSeconds = status.stx_btime.tv_sec;
        file.birthNanoseconds = status.stx_btime.tv_nsec;
    }
    return file;
}

std::string encodeBookmark(const BookmarkRecord& record) {
    std::string bytes(kMark);
    putNumber(bytes, record.file.device);
    putNumber(bytes, record.file.inode);
    putNumber(bytes, record.file.birthSeconds);
    putNumber(bytes, record.file.birthNanoseconds);
    putNumber(bytes, record.handleType);
    putNumber(bytes, static_cast<std::uint32_t>(record.path.size()));
    putNumber(bytes, static_cast<std::uint32_t>(record.handle.size()));
    bytes += record.path;
    bytes += record.handle;
    putNumber(bytes, bookmarkChecksum(bytes));
    return bytes;
}

std::optional<BookmarkRecord> decodeBookmark(std::string_view bytes) {
    if (bytes.size() < kHeaderSize + kChecksumSize || !bytes.starts_with(kMark))
        return std::nullopt;
    std::string_view end = bytes.substr(bytes.size() - kChecksumSize);
    bytes.remove_suffix(kChecksumSize);
    std::uint64_t checksum = 0;
    takeNumber(end, checksum);
    if (checksum != bookmarkChecksum(bytes))
        return std::nullopt;
    BookmarkRecord record;
    std::uint32_t pathLength = 0;
    std::uint32_t handleLength = 0;
    bytes.remove_prefix(kMark.size());
    takeNumber(bytes, record.file.device);
    takeNumber(bytes, record.file.inode);
    takeNumber(bytes, record.file.birthSeconds);
    takeNumber(bytes, record.file.birthNanoseconds);
    takeNumber(bytes, record.handleType);
    takeNumber(bytes, pathLength);
    takeNumber(bytes, handleLength);
    if (pathLength > kBookmarkPathLimit || handleLength > kBookmarkHandleLimit ||
        bytes.size() != std::size_t{pathLength} + handleLength)
        return std::nullopt;
    record.path = bytes.substr(0, pathLength);
    record.handle = bytes.substr(pathLength);
    return isSound(record) ? std::optional(std::move(record)) : std::nullopt;
}

// FNV-1a: each step can be undone, so no change of a single byte goes unseen.
std::uint64_t bookmarkChecksum(std::string_view bytes) {
    std::uint64_t sum = 0xCBF29CE484222325;
    for (const char byte : bytes)
        sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return sum;
}

} // namespace port
