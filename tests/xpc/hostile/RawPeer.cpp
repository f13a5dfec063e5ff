#include "xpc/hostile/RawPeer.h"

#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "xpc/ChildProcess.h"
#include "xpc/XPCDictionary.h"

RawFrame::RawFrame(const std::vector<LXPCData>& items, std::uint64_t replyId) {
    const auto dictionary = port::XPCDictionary::create();
    LList<LXPCDataListable> list;
    for (const LXPCData& item : items)
        list.AddHead(CreateXPCData({item.szName, item.eType}, item.nValue, item.dwSize));
    SetXPCDictionary(dictionary.get(), list);
    header = dictionary->header();
    header.kind = replyId == 0 ? port::XPCFrameKind::Message : port::XPCFrameKind::MessageWantsReply;
    header.replyId = replyId;
    body.assign(reinterpret_cast<const char*>(dictionary->body().data()), dictionary->body().size());
}

std::string RawFrame::Bytes() const {
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + body;
}

RawPeer::RawPeer(const std::string& place, const char* service)
    : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    SocketPath(place, service).copy(address.sun_path, sizeof address.sun_path - 1);
    if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        socket.reset();
}

bool RawPeer::Send(const std::string& bytes, const std::vector<int>& descriptors) {
    iovec part = {const_cast<char*>(bytes.data()), bytes.size()};
    std::vector<char> control(CMSG_SPACE(descriptors.size() * sizeof(int)));
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        *CMSG_FIRSTHDR(&message) = {CMSG_LEN(descriptors.size() * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        memcpy(CMSG_DATA(CMSG_FIRSTHDR(&message)), descriptors.data(), descriptors.size() * sizeof(int));
    }
    ssize_t sent = sendmsg(socket.get(), &message, MSG_NOSIGNAL);
    for (std::size_t done = 0; sent >= 0 && (done += static_cast<std::size_t>(sent)) < bytes.size();)
        sent = send(socket.get(), bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
    return sent >= 0;
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

// Frames are read one at a time, and those of these tests are small.
std::uint64_t RawPeer::ReadReplyId(int milliseconds) {
    port::XPCFrameHeader header;
    pollfd wait = {socket.get(), POLLIN, 0};
    if (poll(&wait, 1, milliseconds) <= 0 ||
        recv(socket.get(), &header, sizeof header, MSG_WAITALL) != sizeof header)
        return 0;
    std::string body(header.bodyBytes, '\0');
    recv(socket.get(), body.data(), body.size(), MSG_WAITALL);
    return header.replyId;
}

std::string SocketPath(const std::string& place, const std::string& service) {
    return place + "/port-xpc/" + service + ".sock";
}
