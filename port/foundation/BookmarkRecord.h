// What a bookmark says of a file, and the bytes in which it is kept.
//
// Thread-safety: pure functions, but for describeFile, which asks the file system.
//
// The bytes, by offset and size; all numbers are little-endian:
//    0   8  "BOOKMARK"
//    8   8  device
//   16   8  inode
//   24   8  birth time, seconds
//   32   4  birth time, nanoseconds
//   36   4  type of the handle
//   40   4  p
//   44   4  h
//   48   p  path, absolute
//        h  handle
//        8  checksum of all before it
// The checksum finds damage. It is no protection from those who mean to change a record.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace port {

constexpr std::size_t kBookmarkPathLimit = PATH_MAX - 1; // bytes
constexpr std::size_t kBookmarkHandleLimit = 128;        // bytes, the kernel's own limit

// Which file it is. Inodes are used again, so two files are taken for one only where the file system knows when
// they were made.
struct FileIdentity {
    static constexpr std::uint32_t kUnknownBirth = ~std::uint32_t{0};

    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t birthSeconds = 0;
    std::uint32_t birthNanoseconds = kUnknownBirth;

    bool operator==(const FileIdentity&) const = default;
    // Equal, whatever number its volume has now.
    bool isFoundAs(const FileIdentity& other) const {
        return birthNanoseconds != kUnknownBirth && inode == other.inode &&
               birthSeconds == other.birthSeconds && birthNanoseconds == other.birthNanoseconds;
    }
};

struct BookmarkRecord {
    FileIdentity file;
    std::string path;
    std::int32_t handleType = 0;
    std::string handle; // of the kernel; empty where the file system gives none
};

// The file at `path`, relative to the folder descriptor; `flags` as statx takes them. None when there is none.
std::optional<FileIdentity> describeFile(int folder, const char* path, int flags);

// The bytes of the record, whose path and handle are within the limits.
std::string encodeBookmark(const BookmarkRecord& record);
// None for bytes that encodeBookmark cannot have made.
std::optional<BookmarkRecord> decodeBookmark(std::string_view bytes);

std::uint64_t bookmarkChecksum(std::string_view bytes);

} // namespace port
