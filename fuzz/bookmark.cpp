// The record of a bookmark: bytes that nobody made are refused, and what is read is within the limits and is
// written as the same bytes. The input is given a right checksum, or nothing would come past it.
#include <cstdlib>
#include <string>

#include "foundation/BookmarkRecord.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

bool isWithinLimits(const port::BookmarkRecord& record) {
    return record.path.size() <= port::kBookmarkPathLimit && record.path[0] == '/' &&
           record.path.find('\0') == record.path.npos && record.handle.size() <= port::kBookmarkHandleLimit &&
           (record.file.birthNanoseconds <= 999'999'999 ||
            record.file.birthNanoseconds == port::FileIdentity::kUnknownBirth);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::uint64_t sum = port::bookmarkChecksum(bytes);
    for (std::size_t at = 0; at < sizeof sum; ++at)
        bytes += static_cast<char>(sum >> (8 * at));
    const auto record = port::decodeBookmark(bytes);
    if (record && (!isWithinLimits(*record) || port::encodeBookmark(*record) != bytes))
        std::abort();
    return 0;
}
