#include "corefoundation/PropertyList.h"

#include "corefoundation/CFValues.h"
#include "host/SystemCalls.h"

#include <cerrno>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <sys/stat.h>

namespace port {
namespace {

// Reads on behind `size` too, as the file may grow while it is read.
int readAll(int file, std::size_t size, std::vector<std::uint8_t>& bytes) {
    bytes.resize(size + 1);
    std::size_t length = 0;
    for (;;) {
        const ssize_t got = sys::read(file, bytes.data() + length, bytes.size() - length);
        if (got < 0)
            return errno;
        length += static_cast<std::size_t>(got);
        if (length > kPropertyListFileLimit)
            return EFBIG;
        if (got == 0)
            break;
        if (length == bytes.size())
            bytes.resize(length * 2);
    }
    bytes.resize(length);
    return 0;
}

std::nullptr_t fail(CFErrorRef* error, CFIndex code, const std::string& text) {
    if (error != nullptr)
        *error = new __CFError(code, text);
    return nullptr;
}

} // namespace

CFRef<CFPropertyListRef> readPropertyList(Bytes bytes, std::string& error) {
    if (bytes.size() > kPropertyListFileLimit) {
        error = "offset " + std::to_string(kPropertyListFileLimit) + ": list too long";
        return {};
    }
    return isBinaryPropertyList(bytes) ? readBinaryPropertyList(bytes, error)
                                       : readXMLPropertyList(bytes, error);
}

int readPropertyListFile(const char* path, std::vector<std::uint8_t>& bytes) {
    bytes.clear();
    // Not waiting for a writer, should the name belong to a pipe.
    const UniqueFd file(sys::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    if (static_cast<std::uint64_t>(status.st_size) > kPropertyListFileLimit)
        return EFBIG;
    const int failure = readAll(file.get(), static_cast<std::size_t>(status.st_size), bytes);
    if (failure != 0)
        bytes.clear();
    return failure;
}

} // namespace port

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data, CFOptionFlags,
                                               CFPropertyListFormat* format, CFErrorRef* error) {
    if (error != nullptr)
        *error = nullptr;
    std::string reason;
    port::CFRef<CFPropertyListRef> list = port::readPropertyList(data->bytes, reason);
    if (!list)
        return port::fail(error, kCFPropertyListReadCorruptError, reason);
    if (format != nullptr)
        *format = port::isBinaryPropertyList(data->bytes) ? kCFPropertyListBinaryFormat_v1_0
                                                          : kCFPropertyListXMLFormat_v1_0;
    return list.release();
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef list, CFPropertyListFormat format,
                                   CFOptionFlags, CFErrorRef* error) {
    if (error != nullptr)
        *error = nullptr;
    std::string xml;
    std::string reason = "format that is not written";
    if (format != kCFPropertyListXMLFormat_v1_0 || !port::writeXMLPropertyList(list, xml, reason))
        return port::fail(error, kCFPropertyListWriteStreamError, reason);
    return new __CFData(std::vector<std::uint8_t>(xml.begin(), xml.end()));
}

Boolean CFPropertyListIsValid(CFPropertyListRef list, CFPropertyListFormat format) {
    std::string xml;
    std::string reason;
    return format == kCFPropertyListXMLFormat_v1_0 && port::writeXMLPropertyList(list, xml, reason);
}
