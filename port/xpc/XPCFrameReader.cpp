#include "xpc/XPCFrameReader.h"

#include "bsd/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace port {
namespace {

thread_local std::unique_ptr<XPCScratch> scratchOfThread;

bool deliver(XPCRef<XPCDictionary> frame, XPCFrameSink& sink) {
    if (!frame)
        return false;
    sink.frameReceived(std::move(frame));
    return true;
}

} // namespace

XPCScratch& XPCScratch::ofThisThread() {
    if (scratchOfThread == nullptr)
        scratchOfThread = std::make_unique_for_overwrite<XPCScratch>();
    return *scratchOfThread;
}

XPCReadResult XPCFrameReader::readFrom(int socket, XPCScratch& scratch, XPCFrameSink& sink) {
    // What is there of a header goes back to the front, so that the rest lands behind it.
    std::memcpy(scratch.bytes.data(), headerBytes_.data(), headerFill_);
    iovec parts[2];
    std::size_t count = 0;
    if (body_ != nullptr)
        parts[count++] = {body_.get() + bodyFill_, header_.bodyBytes - bodyFill_};
    parts[count++] = {scratch.bytes.data() + headerFill_, scratch.bytes.size() - headerFill_};
    const std::size_t room = parts[0].iov_len + (count == 2 ? parts[1].iov_len : 0);

    // Room for what one frame may carry; more than that comes back as truncated.
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t got = sys::recvmsg(socket, &message, MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return XPCReadResult::WouldBlock;
    if (got <= 0)
        return abandon(XPCReadResult::Closed);
    if (!takeDescriptors(message) || !advance(static_cast<std::size_t>(got), scratch, sink))
        return abandon(XPCReadResult::Refused);
    // A read ends early at a frame with descriptors, more may lie behind it; else a short one took all.
    const bool mayGoOn = message.msg_controllen != 0 || (message.msg_flags & MSG_TRUNC) != 0;
    const bool emptied = !mayGoOn && static_cast<std::size_t>(got) < room;
    return emptied ? XPCReadResult::Emptied : XPCReadResult::Read;
}

// Every descriptor gets an owner before any is judged.
bool XPCFrameReader::takeDescriptors(msghdr& message) {
    bool sound = (message.msg_flags & MSG_CTRUNC) == 0;
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
            continue;
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int fd = -1;
            std::memcpy(&fd, CMSG_DATA(part) + i * sizeof fd, sizeof fd);
            UniqueFd owner(fd);
            if (waitingCount_ < waiting_.size())
                waiting_[waitingCount_++] = std::move(owner);
            else
                sound = false;
        }
    }
    return sound;
}

bool XPCFrameReader::advance(std::size_t bytes, XPCScratch& scratch, XPCFrameSink& sink) {
    std::size_t inScratch = bytes + std::exchange(headerFill_, 0);
    if (body_ != nullptr) {
        const std::size_t part = std::min<std::size_t>(bytes, header_.bodyBytes - bodyFill_);
        bodyFill_ += part;
        inScratch = bytes - part;
        if (bodyFill_ != header_.bodyBytes)
            return true;
        if (!deliver(XPCDictionary::receive(header_, std::move(body_), std::move(attachments_)), sink))
            return false;
    }
    return consume({scratch.bytes.data(), inScratch}, sink);
}

bool XPCFrameReader::consume(std::span<const std::byte> bytes, XPCFrameSink& sink) {
    while (bytes.size() >= sizeof header_) {
        std::memcpy(&header_, bytes.data(), sizeof header_);
        bytes = bytes.subspan(sizeof header_);
        XPCAttachments attachments;
        if (!header_.isValid() || !claim(header_.descriptorCount, attachments))
            return false;
        if (bytes.size() < header_.bodyBytes) {
            attachments_ = std::move(attachments);
            return begin(bytes);
        }
        if (!deliver(XPCDictionary::receive(header_, bytes.first(header_.bodyBytes), std::move(attachments)),
                     sink))
            return false;
        bytes = bytes.subspan(header_.bodyBytes);
    }
    std::memcpy(headerBytes_.data(), bytes.data(), bytes.size());
    headerFill_ = bytes.size();
    // Descriptors arrive with the first byte of their frame: what no frame has begun to claim is not wanted.
    return waitingCount_ <= (headerFill_ != 0 ? kMaxDescriptors : 0);
}

bool XPCFrameReader::begin(std::span<const std::byte> part) {
    body_ = makeXPCBody(header_.bodyBytes);
    if (body_ == nullptr)
        return false;
    std::memcpy(body_.get(), part.data(), part.size());
    bodyFill_ = part.size();
    return waitingCount_ == 0;
}

bool XPCFrameReader::claim(std::size_t count, XPCAttachments& attachments) {
    if (count > waitingCount_)
        return false;
    for (std::size_t i = 0; i < count; ++i) {
        if (!attachments.append(std::move(waiting_[i])))
            return false;
    }
    if (count != 0)
        std::move(waiting_.begin() + static_cast<std::ptrdiff_t>(count),
                  waiting_.begin() + static_cast<std::ptrdiff_t>(waitingCount_), waiting_.begin());
    waitingCount_ -= count;
    return true;
}

XPCReadResult XPCFrameReader::abandon(XPCReadResult result) {
    headerFill_ = 0;
    body_.reset();
    attachments_ = XPCAttachments();
    for (UniqueFd& fd : waiting_)
        fd.reset();
    waitingCount_ = 0;
    return result;
}

} // namespace port
