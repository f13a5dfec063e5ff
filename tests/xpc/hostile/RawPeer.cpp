#include "xpc/hostile/RawPeer.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "xpc/XPCDictionary.h"

std::string Frame(const std::vector<LXPCData>& items, std::uint64_t replyId, bool isReply) {
    const auto dictionary = port::XPCDictionary::create();
    LList<LXPCDataListable> list;
    for (const LXPCData& item : items)
        list.AddHead(CreateXPCData({item.szName, item.eType}, item.nValue, item.dwSize));
    SetXPCDictionary(dictionary.get(), list);
    port::XPCFrameHeader header = dictionary->header();
    header.replyId = replyId;
    header.kind = isReply        ? port::XPCFrameKind::Reply
                  : replyId == 0 ? port::XPCFrameKind::Message
                                 : port::XPCFrameKind::MessageWantsReply;
    return std::string(reinterpret_cast<const char*>(&header), sizeof header)
        .append(reinterpret_cast<const char*>(dictionary->body().data()), dictionary->body().size());
}

RawPeer::RawPeer(const std::string& path, bool apart)
    : socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const pid_t child = apart ? fork() : 0;
    int status = 0;
    if (child == 0)
        status = connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    if (child == 0 && apart)
        _exit(status);
    if (child != 0)
        waitpid(child, &status, 0);
    if (status != 0)
        socket.reset();
}

bool RawPeer::Send(const std::string& bytes, std::size_t descriptors) {
    iovec part = {const_cast<char*>(bytes.data()), bytes.size()};
    std::vector<char> control(CMSG_SPACE(descriptors * sizeof(int)));
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (descriptors != 0) {
        message.msg_control = control.data(); // zeros behind the header: standard input
        message.msg_controllen = control.size();
        *CMSG_FIRSTHDR(&message) = {CMSG_LEN(descriptors * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    }
    return sendmsg(socket.get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// Frames are read one at a time, and those of these tests are small.
std::uint64_t RawPeer::ReadReplyId(int milliseconds) {
    const timeval patience = {milliseconds / 1000, milliseconds % 1000 * 1000};
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    port::XPCFrameHeader header;
    const ssize_t count = recv(socket.get(), &header, sizeof header, MSG_WAITALL);
    if (count != sizeof header)
        return count == 0 || errno == ECONNRESET ? Closed : 0;
    std::string body(header.bodyBytes, '\0');
    recv(socket.get(), body.data(), body.size(), MSG_WAITALL);
    return header.replyId;
}
