// What the frame tests share: a pair of sockets with a reader at one end.
#pragma once

#include "xpc/ChildProcess.h"
#include "xpc/XPCFrameReader.h"
#include "xpc/XPCFrameWriter.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <unistd.h>

using Dictionary = port::XPCRef<port::XPCDictionary>;
using port::XPCReadResult;

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

    // Raw bytes, with `count` times the file beside the first.
    void put(const std::string& bytes, std::size_t count = 0, int file = STDIN_FILENO) const {
        iovec part{const_cast<char*>(bytes.data()), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const std::vector<int> files(count, file);
        std::vector<char> control(CMSG_SPACE(count * sizeof(int)));
        if (count != 0) {
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            *CMSG_FIRSTHDR(&message) = {CMSG_LEN(count * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
            std::memcpy(CMSG_DATA(CMSG_FIRSTHDR(&message)), files.data(), count * sizeof(int));
        }
        ASSERT_EQ(::sendmsg(sender.get(), &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    // Reads until the socket has nothing more, or the connection is over.
    XPCReadResult drain() {
        auto result = XPCReadResult::Read;
        while (result == XPCReadResult::Read || result == XPCReadResult::Emptied)
            result = reader.readFrom(receiver_.get(), port::XPCScratch::ofThisThread(), *this);
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
    return std::string(reinterpret_cast<const char*>(&header), sizeof header)
        .append(reinterpret_cast<const char*>(dictionary.body().data()), dictionary.body().size());
}
