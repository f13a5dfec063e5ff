#include "xpc/hostile/RawPeer.h"

#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "xpc/ChildProcess.h"

RawFrame::RawFrame(port::XPCFrameKind kind, std::uint64_t replyId) {
    header.kind = kind;
    header.replyId = replyId;
}

RawFrame& RawFrame::Add(port::XPCTag tag, std::string_view key, std::string_view value) {
    port::XPCEntryHeader entry;
    entry.tag = tag;
    entry.keyBytes = static_cast<std::uint16_t>(key.size());
    entry.valueBytes = static_cast<std::uint32_t>(value.size());
    const std::size_t start = body.size();
    body.append(reinterpret_cast<const char*>(&entry), sizeof entry);
    body.append(key).resize(start + entry.valueOffset());
    body.append(value).resize(start + entry.totalBytes());
    header.bodyBytes = static_cast<std::uint32_t>(body.size());
    header.keyCount++;
    return *this;
}

RawFrame& RawFrame::AddText(std::string_view key, std::string_view text) {
    return Add(port::XPCTag::String, key, std::string(text) + '\0');
}

RawFrame& RawFrame::AddNumber(std::string_view key, std::int64_t value) {
    return Add(port::XPCTag::Int64, key, {reinterpret_cast<const char*>(&value), sizeof value});
}

std::string RawFrame::Bytes() const {
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + body;
}

RawPeer::RawPeer(const std::string& path) : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        socket.reset();
}

bool RawPeer::Send(std::string_view bytes, const std::vector<int>& descriptors) {
    iovec part = {const_cast<char*>(bytes.data()), bytes.size()};
    std::vector<char> control(CMSG_SPACE(descriptors.size() * sizeof(int)));
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* const item = CMSG_FIRSTHDR(&message);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
        memcpy(CMSG_DATA(item), descriptors.data(), descriptors.size() * sizeof(int));
    }
    while (part.iov_len > 0) {
        const ssize_t sent = sendmsg(socket.get(), &message, MSG_NOSIGNAL);
        if (sent < 0)
            return false;
        part.iov_base = static_cast<char*>(part.iov_base) + sent;
        part.iov_len -= static_cast<std::size_t>(sent);
        message.msg_control = nullptr;
        message.msg_controllen = 0;
    }
    return true;
}

bool RawPeer::IsClosedWithin(int milliseconds) {
    const long deadline = NowMilliseconds() + milliseconds;
    char waste[65536];
    for (long left; (left = deadline - NowMilliseconds()) > 0;) {
        pollfd wait = {socket.get(), POLLIN, 0};
        if (poll(&wait, 1, static_cast<int>(left)) > 0 && recv(socket.get(), waste, sizeof waste, 0) <= 0)
            return true;
    }
    return false;
}

bool RawPeer::ReadBytes(void* bytes, std::size_t size, long deadline) {
    for (char* place = static_cast<char*>(bytes); size > 0;) {
        pollfd wait = {socket.get(), POLLIN, 0};
        const long left = deadline - NowMilliseconds();
        if (left <= 0 || poll(&wait, 1, static_cast<int>(left)) <= 0)
            return false;
        const ssize_t count = recv(socket.get(), place, size, 0);
        if (count <= 0)
            return false;
        place += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

RawFrame RawPeer::Read(int milliseconds) {
    const long deadline = NowMilliseconds() + milliseconds;
    RawFrame frame;
    if (ReadBytes(&frame.header, sizeof frame.header, deadline)) {
        frame.body.resize(frame.header.bodyBytes);
        if (ReadBytes(frame.body.data(), frame.body.size(), deadline))
            return frame;
    }
    frame.header.magic = 0;
    return frame;
}

std::string SocketPath(const std::string& place, const std::string& service) {
    return place + "/port-xpc/" + service + ".sock";
}
