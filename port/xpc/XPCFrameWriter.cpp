#include "xpc/XPCFrameWriter.h"

#include "host/SystemCalls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <sys/socket.h>
#include <sys/uio.h>
#include <utility>

namespace port {
namespace {

// Spent items are dropped from the front of the queue once there are this many and they are the half.
constexpr std::size_t kSpentItems = 64;
// What a queue holds beside the bodies is reckoned in steps: most queues are short.
constexpr std::size_t kHoldStep = std::size_t{32} << 10;

void* writable(const void* bytes) {
    return const_cast<void*>(bytes);
} // iovec knows no const

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK;
}

// Parts and descriptors of one `sendmsg`.
struct Gathering {
    std::array<iovec, 2 * kGatherFrames> parts;
    std::size_t count = 0;
    std::size_t bytes = 0;
    const XPCAttachments* attachments = nullptr;

    // The part of `size` bytes at `start`, without its first `skip` bytes; the rest of `skip` comes back.
    std::size_t add(const void* start, std::size_t size, std::size_t skip) {
        if (skip >= size)
            return skip - size;
        parts[count++] = {writable(static_cast<const std::byte*>(start) + skip), size - skip};
        bytes += size - skip;
        return 0;
    }
    void addFrame(const XPCFrameHeader& header, const XPCDictionary& dictionary, std::size_t written) {
        add(dictionary.body().data(), dictionary.body().size(), add(&header, sizeof header, written));
    }
    void limitToPiece();
    ssize_t send(int socket);
};

// The reader of a long frame begins while the rest is still being written. A little more than one piece is not
// worth two calls.
void Gathering::limitToPiece() {
    if (bytes <= kWriteBytes + kWriteBytes / 8)
        return;
    while (bytes - parts[count - 1].iov_len >= kWriteBytes)
        bytes -= parts[--count].iov_len;
    parts[count - 1].iov_len -= bytes - kWriteBytes;
    bytes = kWriteBytes;
}

ssize_t Gathering::send(int socket) {
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = count;
    if (attachments != nullptr) {
        const std::size_t length = attachments->size() * sizeof(int);
        std::memset(control, 0, sizeof control);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(length);
        cmsghdr* const part = CMSG_FIRSTHDR(&message);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(length);
        for (std::size_t i = 0; i < attachments->size(); ++i) {
            const int fd = attachments->descriptor(i);
            std::memcpy(CMSG_DATA(part) + i * sizeof fd, &fd, sizeof fd);
        }
    }
    return sys::sendmsg(socket, &message, MSG_DONTWAIT);
}

XPCFrameHeader headerFor(const XPCDictionary& dictionary, XPCFrameKind kind, std::uint64_t replyId) {
    XPCFrameHeader header = dictionary.header();
    header.kind = kind;
    header.replyId = replyId;
    return header;
}

const XPCAttachments* attachmentsOf(const XPCDictionary& dictionary) {
    return dictionary.attachments().size() == 0 ? nullptr : &dictionary.attachments();
}

} // namespace

std::size_t XPCFrameWriter::Item::cost() const {
    if (!dictionary)
        return sizeof *this;
    return sizeof *this + sizeof *dictionary + header.bodyBytes + header.attachedBytes;
}

bool XPCFrameWriter::enqueue(XPCDictionary& dictionary, XPCFrameKind kind, std::uint64_t replyId) {
    Item item{XPCRef<XPCDictionary>::retained(&dictionary), headerFor(dictionary, kind, replyId), 0, {}};
    if (!mayWait(item))
        return false;
    return append(std::move(item));
}

bool XPCFrameWriter::mayWait(const Item& item) const {
    return (isEmpty() || waitingBytes_ + item.cost() <= kSendQueueBytes) &&
           (item.cost() <= kSmallMessageBytes || !XPCHold::isFull());
}

void XPCFrameWriter::enqueueBarrier(dispatch_block_t barrier) {
    if (!append({{}, {}, 0, std::move(barrier)}))
        throw std::bad_alloc();
}

// False, with nothing changed, when memory is short.
bool XPCFrameWriter::append(Item item) {
    if (first_ >= kSpentItems && first_ * 2 >= queue_.size()) {
        queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(first_));
        first_ = 0;
    }
    const std::size_t cost = item.cost();
    try {
        queue_.push_back(std::move(item));
    } catch (const std::bad_alloc&) {
        return false;
    }
    waitingBytes_ += cost;
    const std::size_t held = (queue_.size() - first_) * (sizeof item + sizeof *item.dictionary);
    if (held > hold_.bytes() + kHoldStep)
        hold_ = XPCHold(held);
    return true;
}

// Under the connection's lock: MSG_DONTWAIT keeps it short.
XPCWriteResult XPCFrameWriter::send(int socket, XPCDictionary& dictionary, XPCFrameKind kind,
                                    std::uint64_t replyId) {
    if (!isEmpty())
        return enqueue(dictionary, kind, replyId) ? XPCWriteResult::Blocked : XPCWriteResult::Failed;
    const XPCFrameHeader header = headerFor(dictionary, kind, replyId);
    const std::size_t whole = sizeof header + header.bodyBytes;
    for (std::size_t taken = 0;;) {
        Gathering gathering;
        gathering.addFrame(header, dictionary, taken);
        gathering.limitToPiece();
        // Once a byte of the frame is out its descriptors are as well.
        if (taken == 0)
            gathering.attachments = attachmentsOf(dictionary);
        const ssize_t written = gathering.send(socket);
        if (written < 0 && !wouldBlock())
            return XPCWriteResult::Failed;
        taken += written < 0 ? 0 : static_cast<std::size_t>(written);
        if (taken == whole)
            return XPCWriteResult::Drained;
        if (written < 0 || static_cast<std::size_t>(written) != gathering.bytes) {
            Item rest{XPCRef<XPCDictionary>::retained(&dictionary), header, taken, {}};
            return mayWait(rest) && append(std::move(rest)) ? XPCWriteResult::Blocked
                                                            : XPCWriteResult::Failed;
        }
    }
}

XPCWriteResult XPCFrameWriter::flush(int socket, std::vector<dispatch_block_t>& reached) {
    for (popBarriers(reached); !isEmpty(); popBarriers(reached)) {
        std::size_t wanted = 0;
        const ssize_t written = writeFront(socket, wanted);
        if (written < 0)
            return wouldBlock() ? XPCWriteResult::Blocked : XPCWriteResult::Failed;
        popWritten(static_cast<std::size_t>(written), reached);
        // A short write filled the socket: asking again would only be told so.
        if (static_cast<std::size_t>(written) < wanted)
            return XPCWriteResult::Blocked;
    }
    return XPCWriteResult::Drained;
}

void XPCFrameWriter::clear(std::vector<dispatch_block_t>& reached) {
    while (!isEmpty()) {
        popBarriers(reached);
        if (!isEmpty())
            pop();
    }
}

// One `sendmsg` of the frames at the front. Descriptors go with the first byte of their frame, so a frame
// that brings some may only be the first.
ssize_t XPCFrameWriter::writeFront(int socket, std::size_t& wanted) const {
    Gathering gathering;
    std::size_t frames = 0;
    for (std::size_t i = first_; i < queue_.size() && frames < kGatherFrames; ++i) {
        const Item& item = queue_[i];
        if (!item.dictionary)
            continue;
        const XPCAttachments* const attachments =
            item.written == 0 ? attachmentsOf(*item.dictionary) : nullptr;
        if (attachments != nullptr && frames != 0)
            break;
        if (attachments != nullptr)
            gathering.attachments = attachments;
        gathering.addFrame(item.header, *item.dictionary, item.written);
        ++frames;
    }
    gathering.limitToPiece();
    wanted = gathering.bytes;
    return gathering.send(socket);
}

// A barrier between two frames of one call is reached when the one before it is out.
void XPCFrameWriter::popWritten(std::size_t bytes, std::vector<dispatch_block_t>& reached) {
    while (bytes != 0) {
        popBarriers(reached);
        Item& item = queue_[first_];
        const std::size_t rest = item.frameBytes() - item.written;
        if (bytes < rest) {
            item.written += bytes;
            return;
        }
        bytes -= rest;
        pop();
    }
}

void XPCFrameWriter::popBarriers(std::vector<dispatch_block_t>& reached) {
    while (!isEmpty() && !queue_[first_].dictionary) {
        reached.push_back(std::move(queue_[first_].barrier));
        pop();
    }
}

// The dictionary goes at once, not with the spent places: it may be large, or hold descriptors.
void XPCFrameWriter::pop() {
    waitingBytes_ -= queue_[first_].cost();
    queue_[first_] = Item();
    if (++first_ == queue_.size()) {
        queue_.clear();
        first_ = 0;
        hold_ = {};
    }
}

} // namespace port
