// A peer's bytes through the frame reader, in two pieces and with descriptors beside the first. What arrives
// must hold together: every value that a getter hands out is read to its end.
#include "xpc/XPCFrameReader.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <port/UniqueFd.h>
#include <sys/socket.h>
#include <vector>

namespace {

constexpr std::size_t kPrefix = 3; // count of descriptors, then where the stream is cut
constexpr std::size_t kMaxStream = 64 << 10;

void require(bool holds) {
    if (!holds)
        std::abort();
}

unsigned readAll(const void* bytes, std::size_t length) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < length; ++i)
        sum += static_cast<const unsigned char*>(bytes)[i];
    return sum;
}

void readValue(xpc_object_t dictionary, const char* key) {
    require(xpc_dictionary_get_value(dictionary, key) != nullptr);
    static_cast<void>(xpc_dictionary_get_bool(dictionary, key));
    static_cast<void>(xpc_dictionary_get_int64(dictionary, key));
    std::size_t length = 0;
    const void* const data = xpc_dictionary_get_data(dictionary, key, &length);
    volatile unsigned sink = readAll(data, length);
    if (const char* const text = xpc_dictionary_get_string(dictionary, key))
        sink = readAll(text, std::strlen(text));
    if (const std::uint8_t* const uuid = xpc_dictionary_get_uuid(dictionary, key))
        sink = readAll(uuid, 16);
    static_cast<void>(sink);
    const port::UniqueFd fd(xpc_dictionary_dup_fd(dictionary, key));
}

class Sink final : public port::XPCFrameSink {
public:
    bool frameReceived(port::XPCRef<port::XPCDictionary> frame) override {
        const auto body = frame->body();
        require(port::bodyIsValid(frame->header(), body));
        for (std::size_t at = 0; at < body.size(); at += port::XPCEntryHeader::at(&body[at]).totalBytes())
            readValue(frame.get(), reinterpret_cast<const char*>(&body[at]) + sizeof(port::XPCEntryHeader));
        return true;
    }
};

void put(int socket, const std::uint8_t* bytes, std::size_t size, std::size_t descriptors) {
    static const port::UniqueFd file = port::makeValueFile(
        std::vector<char>(port::kMaxInlineValueBytes + 1).data(), port::kMaxInlineValueBytes + 1);
    iovec part{const_cast<std::uint8_t*>(bytes), size};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    std::vector<char> control(CMSG_SPACE(descriptors * sizeof(int)));
    if (descriptors != 0) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* const rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(descriptors * sizeof(int));
        const std::vector<int> files(descriptors, file.get());
        std::memcpy(CMSG_DATA(rights), files.data(), descriptors * sizeof(int));
    }
    require(size == 0 || ::sendmsg(socket, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(size));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size <= kPrefix || size > kMaxStream)
        return 0;
    std::array<int, 2> ends{};
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0);
    const port::UniqueFd mine(ends[0]);
    const port::UniqueFd theirs(ends[1]);
    const std::uint8_t* const stream = data + kPrefix;
    const std::size_t length = size - kPrefix;
    const std::size_t cut = 1 + (data[1] + 256U * data[2]) % length;
    port::XPCFrameReader reader;
    Sink sink;
    const auto drain = [&] {
        auto result = port::XPCReadResult::Read;
        while (result == port::XPCReadResult::Read || result == port::XPCReadResult::Emptied)
            result = reader.readFrom(theirs.get(), port::XPCScratch::ofThisThread(), sink);
        return result == port::XPCReadResult::WouldBlock;
    };
    put(mine.get(), stream, cut, data[0] % (port::kMaxDescriptors + 2));
    if (drain()) {
        put(mine.get(), stream + cut, length - cut, 0);
        drain();
    }
    return 0;
}
