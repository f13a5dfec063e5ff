#include "xpc/XPCFrameReader.h"

#include "dispatch/Closer.h"
#include "host/PassedDescriptors.h"
#include "host/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <pthread.h>
#include <utility>

namespace port {
namespace {

thread_local XPCScratch* scratchOfThread = nullptr;

// Ends with the thread. A destructor of the language would be registered with memory, and abort without.
void freeWithThread(XPCScratch* scratch) {
    static pthread_key_t key;
    static const bool isMade =
        ::pthread_key_create(&key, [](void* held) { delete static_cast<XPCScratch*>(held); }) == 0;
    if (!isMade || ::pthread_setspecific(key, scratch) != 0)
        throw std::bad_alloc();
}

} // namespace

// One for the thread, not for the connection: hundreds of peers are read by a few threads, and nothing stays in
// it between reads.
XPCScratch& XPCScratch::ofThisThread() {
    if (scratchOfThread == nullptr) {
        auto fresh = std::make_unique_for_overwrite<XPCScratch>();
        freeWithThread(fresh.get());
        scratchOfThread = fresh.release();
    }
    return *scratchOfThread;
}

void XPCFrameReader::Places::add(void* start, std::size_t size) {
    parts[count++] = {start, size};
    room += size;
}

// No memory for the guess is no failure: the bytes go through the scratch then.
void XPCFrameReader::lay(Places& places, XPCScratch& scratch) {
    if (body_ != nullptr)
        places.add(body_.get() + bodyFill_, header_.bodyBytes - bodyFill_);
    if (guess_ != 0)
        places.guessed = makeReceivedXPCBody(guess_);
    if (places.guessed != nullptr) {
        places.add(headerBytes_.data() + headerFill_, headerBytes_.size() - headerFill_);
        places.add(places.guessed.get(), guess_);
        places.guessedBytes = guess_;
    }
    places.add(scratch.bytes.data(), scratch.bytes.size());
}

XPCReadResult XPCFrameReader::readFrom(int socket, XPCScratch& scratch, XPCFrameSink& sink) {
    Places places;
    lay(places, scratch);
    // Room for all that may come: what finds none the kernel closes, which may last.
    alignas(cmsghdr) char control[CMSG_SPACE(kMostPassed * sizeof(int))];
    msghdr message{};
    message.msg_iov = places.parts.data();
    message.msg_iovlen = places.count;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t got = sys::recvmsg(socket, &message, MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return XPCReadResult::WouldBlock;
    if (got <= 0)
        return abandon(XPCReadResult::Closed);
    // A read ends early at a frame with descriptors, more may lie behind it; else a short one took all.
    const bool mayGoOn = message.msg_controllen != 0 || (message.msg_flags & MSG_TRUNC) != 0;
    const bool emptied = !mayGoOn && static_cast<std::size_t>(got) < places.room;
    if (!takeDescriptors(message) || !advance(static_cast<std::size_t>(got), places, scratch, sink))
        return abandon(XPCReadResult::Refused);
    return emptied ? XPCReadResult::Emptied : XPCReadResult::Read;
}

// Every descriptor gets an owner before any is judged.
bool XPCFrameReader::takeDescriptors(msghdr& message) {
    std::size_t count = 0;
    forEachPassed(message, [&](int descriptor) {
        UniqueFd owner(descriptor);
        ++count;
        if (waitingCount_ < waiting_.size())
            waiting_[waitingCount_++] = std::move(owner);
        else
            Closer::shared().drop(std::move(owner));
    });
    return (message.msg_flags & MSG_CTRUNC) == 0 && count <= kMaxDescriptors;
}

bool XPCFrameReader::advance(std::size_t bytes, Places& places, XPCScratch& scratch, XPCFrameSink& sink) {
    const auto take = [&bytes](std::size_t room) {
        const std::size_t part = std::min(bytes, room);
        bytes -= part;
        return part;
    };
    if (body_ != nullptr && !advanceBody(take(header_.bodyBytes - bodyFill_), sink))
        return false;
    if (places.guessed != nullptr && bytes != 0) {
        headerFill_ += take(headerBytes_.size() - headerFill_);
        if (headerFill_ == headerBytes_.size() && !advanceGuessed(take(places.guessedBytes), places, sink))
            return false;
    }
    if (!consume({scratch.bytes.data(), bytes}, sink))
        return false;
    // Descriptors arrive with the first byte of their frame: what no frame has begun to claim is not wanted.
    return waitingCount_ <= (headerFill_ != 0 ? kMaxDescriptors : 0);
}

// A whole header, and behind it `bytes` bytes in the guessed memory.
bool XPCFrameReader::advanceGuessed(std::size_t bytes, Places& places, XPCFrameSink& sink) {
    headerFill_ = 0;
    if (!openHeader(headerBytes_.data()))
        return false;
    // Not memory of a much larger size: what a message costs is reckoned by its own bytes.
    if (header_.bodyBytes >= std::max(bytes, places.guessedBytes / 2) &&
        header_.bodyBytes <= places.guessedBytes) {
        body_ = std::move(places.guessed);
        bodyFill_ = 0;
        return advanceBody(bytes, sink);
    }
    std::span<const std::byte> read(places.guessed.get(), bytes);
    return consumeBody(read, sink) && consume(read, sink);
}

bool XPCFrameReader::advanceBody(std::size_t bytes, XPCFrameSink& sink) {
    bodyFill_ += bytes;
    return bodyFill_ != header_.bodyBytes ||
           finish(XPCDictionary::receive(header_, std::move(body_), std::move(attachments_)), sink);
}

// Any bytes, from wherever the last ones ended.
bool XPCFrameReader::consume(std::span<const std::byte> bytes, XPCFrameSink& sink) {
    while (!bytes.empty()) {
        if (body_ != nullptr) {
            const std::size_t part = std::min<std::size_t>(bytes.size(), header_.bodyBytes - bodyFill_);
            std::memcpy(body_.get() + bodyFill_, bytes.data(), part);
            bytes = bytes.subspan(part);
            if (!advanceBody(part, sink))
                return false;
        } else if (!consumeHeader(bytes) || (headerFill_ == 0 && !consumeBody(bytes, sink))) {
            return false;
        }
    }
    return true;
}

// Afterwards `headerFill_` is 0 when the header is whole and `header_` holds it.
bool XPCFrameReader::consumeHeader(std::span<const std::byte>& bytes) {
    const std::byte* whole = bytes.data();
    const std::size_t part = std::min(bytes.size(), headerBytes_.size() - headerFill_);
    if (part != headerBytes_.size()) {
        std::memcpy(headerBytes_.data() + headerFill_, bytes.data(), part);
        headerFill_ += part;
        whole = headerBytes_.data();
    }
    bytes = bytes.subspan(part);
    if (headerFill_ != 0 && headerFill_ != headerBytes_.size())
        return true;
    headerFill_ = 0;
    return openHeader(whole);
}

// Copied, for the bytes may stand at any address. Its limits are asked before its size is believed, and the
// descriptors that it tells of came with its first byte.
bool XPCFrameReader::openHeader(const std::byte* bytes) {
    std::memcpy(&header_, bytes, sizeof header_);
    return header_.isValid() && claim(header_.descriptorCount);
}

bool XPCFrameReader::consumeBody(std::span<const std::byte>& bytes, XPCFrameSink& sink) {
    if (bytes.size() < header_.bodyBytes)
        return begin(std::exchange(bytes, {}));
    const auto body = bytes.first(header_.bodyBytes);
    bytes = bytes.subspan(body.size());
    return finish(XPCDictionary::receive(header_, body, std::move(attachments_)), sink);
}

bool XPCFrameReader::begin(std::span<const std::byte> part) {
    body_ = makeReceivedXPCBody(header_.bodyBytes);
    if (body_ == nullptr)
        return false;
    std::memcpy(body_.get(), part.data(), part.size());
    bodyFill_ = part.size();
    return true;
}

bool XPCFrameReader::finish(XPCRef<XPCDictionary> frame, XPCFrameSink& sink) {
    guess_ = header_.bodyBytes >= kLargeFrameBytes ? header_.bodyBytes : 0;
    if (!frame)
        return false;
    ++complete_;
    return sink.frameReceived(std::move(frame));
}

bool XPCFrameReader::claim(std::size_t count) {
    if (count > waitingCount_)
        return false;
    for (std::size_t i = 0; i < count; ++i) {
        if (!attachments_.append(std::move(waiting_[i]), XPCAttachments::Origin::Peer))
            return false;
    }
    if (count != 0)
        std::move(waiting_.begin() + static_cast<std::ptrdiff_t>(count),
                  waiting_.begin() + static_cast<std::ptrdiff_t>(waitingCount_), waiting_.begin());
    waitingCount_ -= count;
    return true;
}

// Nobody has asked for these descriptors, and their close may last as long as the sender likes: the closer does
// it, not the thread that reads.
XPCReadResult XPCFrameReader::abandon(XPCReadResult result) {
    headerFill_ = 0;
    body_.reset();
    attachments_ = XPCAttachments();
    for (std::size_t i = 0; i < waitingCount_; ++i)
        Closer::shared().drop(std::move(waiting_[i]));
    waitingCount_ = 0;
    return result;
}

} // namespace port
