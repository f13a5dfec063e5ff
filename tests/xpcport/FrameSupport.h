// What the frame tests share: a pair of sockets with a reader at one end, and a count of open descriptors.
#pragma once

#include "xpc/XPCDictionary.h"
#include "xpc/XPCFrameReader.h"
#include "xpc/XPCFrameWriter.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <port/UniqueFd.h>
#include <string>
#include <sys/socket.h>
#include <utility>
#include <vector>
#include <xpc/xpc.h>

namespace frametest {

using Dictionary = port::XPCRef<port::XPCDictionary>;

inline Dictionary makeDictionary() {
    return port::XPCDictionary::create();
}

inline long openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// The receiving end of a connection, fed by hand or by a writer through the other end.
class Pipe : public port::XPCFrameSink {
public:
    Pipe() {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
            std::abort();
        sender.reset(ends[0]);
        receiver_.reset(ends[1]);
    }
    virtual ~Pipe() = default;

    void frameReceived(Dictionary frame) override { frames.push_back(std::move(frame)); }

    // Raw bytes, with `descriptors` times standard input beside the first, or with `file`.
    void put(const std::string& bytes, std::size_t descriptors = 0, int file = 0) const {
        iovec part{const_cast<char*>(bytes.data()), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const std::vector<int> files(descriptors, file);
        std::vector<char> control(CMSG_SPACE(descriptors * sizeof(int)));
        if (descriptors != 0) {
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            auto* const rights = reinterpret_cast<cmsghdr*>(control.data());
            *rights = {CMSG_LEN(descriptors * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
            std::memcpy(CMSG_DATA(rights), files.data(), descriptors * sizeof(int));
        }
        ASSERT_EQ(::sendmsg(sender.get(), &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    // Reads until the socket has nothing more, or the connection is over.
    port::XPCReadResult drain() {
        port::XPCReadResult result{};
        do
            result = reader.readFrom(receiver_.get(), port::XPCScratch::ofThisThread(), *this);
        while (result == port::XPCReadResult::Read || result == port::XPCReadResult::Emptied);
        return result;
    }

    port::UniqueFd sender;
    port::XPCFrameReader reader;
    std::vector<Dictionary> frames;

private:
    port::UniqueFd receiver_;
};

// Header and body as they travel.
inline std::string frameBytes(const port::XPCDictionary& dictionary) {
    const port::XPCFrameHeader header = dictionary.header();
    std::string bytes(reinterpret_cast<const char*>(&header), sizeof header);
    bytes.append(reinterpret_cast<const char*>(dictionary.body().data()), dictionary.body().size());
    return bytes;
}

// Sends the dictionary through sockets and gives back what arrives; none when it cannot be sent.
inline Dictionary transport(port::XPCDictionary& dictionary) {
    if (!dictionary.seal())
        return {};
    Pipe pipe;
    port::XPCFrameWriter writer;
    std::vector<dispatch_block_t> reached;
    auto state = writer.send(pipe.sender.get(), dictionary, port::XPCFrameKind::Message, 0);
    while (state == port::XPCWriteResult::Blocked && pipe.drain() == port::XPCReadResult::WouldBlock)
        state = writer.flush(pipe.sender.get(), reached);
    EXPECT_EQ(pipe.drain(), port::XPCReadResult::WouldBlock);
    return pipe.frames.size() == 1 ? std::move(pipe.frames.front()) : Dictionary();
}

} // namespace frametest
