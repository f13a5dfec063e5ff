// Takes frames off a stream socket: one read into a buffer that belongs to the thread yields many frames; a
// frame that is not complete yet gets memory of exactly its size, and the next read goes straight into it. So
// does the first read of a frame behind a large one, which mostly is of the same size.
//
// Thread-safety: a reader belongs to one connection and is used by one thread at a time.
#pragma once

#include "xpc/XPCDictionary.h"
#include "xpc/XPCFrame.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <port/UniqueFd.h>
#include <span>
#include <sys/socket.h>
#include <sys/uio.h>

namespace port {

// The buffer that all connections read by one thread share. Its content has no meaning between reads.
struct XPCScratch {
    alignas(8) std::array<std::byte, kReceiveBytes> bytes;

    // The calling thread's, made at its first call and freed with the thread.
    static XPCScratch& ofThisThread();
};

class XPCFrameSink {
public:
    // One checked frame, in order of arrival; `kind()` and `replyId()` tell what it is. False refuses the peer.
    virtual bool frameReceived(XPCRef<XPCDictionary> frame) = 0;

protected:
    ~XPCFrameSink() = default;
};

enum class XPCReadResult {
    Read,       // bytes were taken; the sink has been given the frames that they completed
    Emptied,    // the same, and nothing was left behind in the socket
    WouldBlock, // nothing to read now
    Closed,     // the peer is gone
    Refused,    // the peer broke a rule, or memory is short: the connection must be closed
};

class XPCFrameReader {
public:
    XPCFrameReader() = default;
    XPCFrameReader(const XPCFrameReader&) = delete;
    XPCFrameReader& operator=(const XPCFrameReader&) = delete;
    ~XPCFrameReader() { abandon(XPCReadResult::Closed); }

    // One `recvmsg` on a non-blocking socket. After Closed or Refused every descriptor received for an
    // unfinished frame is closed, and the reader is ready for another socket.
    XPCReadResult readFrom(int socket, XPCScratch& scratch, XPCFrameSink& sink);
    // The frame on its way, or the last one, is large: the next bytes may come soon.
    bool isInStream() const { return body_ != nullptr || guess_ != 0; }
    // What is held of an unfinished frame goes; the result comes back.
    XPCReadResult abandon(XPCReadResult result);
    // The number of the frame that has begun and is not complete, if there is one.
    std::optional<std::uint64_t> unfinished() const {
        return headerFill_ != 0 || body_ != nullptr ? std::optional(complete_) : std::nullopt;
    }

private:
    // What one read may leave: those of a frame whose header is not complete, and those of the next.
    static constexpr std::size_t kWaitingDescriptors = 2 * kMaxDescriptors;

    // Where one read puts what it takes, in this order: the rest of the body on its way; the rest of a header
    // and the body behind it, when its size is guessed; the scratch.
    struct Places {
        std::array<iovec, 4> parts;
        std::size_t count = 0;
        std::size_t room = 0;
        XPCBody guessed;
        std::size_t guessedBytes = 0;

        void add(void* start, std::size_t size);
    };

    void lay(Places& places, XPCScratch& scratch);
    bool takeDescriptors(msghdr& message);
    bool advance(std::size_t bytes, Places& places, XPCScratch& scratch, XPCFrameSink& sink);
    bool advanceGuessed(std::size_t bytes, Places& places, XPCFrameSink& sink);
    bool consume(std::span<const std::byte> bytes, XPCFrameSink& sink);
    bool consumeHeader(std::span<const std::byte>& bytes);
    bool openHeader(const std::byte* bytes);
    bool consumeBody(std::span<const std::byte>& bytes, XPCFrameSink& sink);
    bool begin(std::span<const std::byte> part);
    bool advanceBody(std::size_t bytes, XPCFrameSink& sink);
    bool claim(std::size_t count);
    bool finish(XPCRef<XPCDictionary> frame, XPCFrameSink& sink);

    std::uint64_t complete_ = 0; // frames
    // The size that the next body is guessed to have; 0: not a large one.
    std::size_t guess_ = 0;

    // A header of which only a part has arrived.
    std::array<std::byte, sizeof(XPCFrameHeader)> headerBytes_{};
    std::size_t headerFill_ = 0;

    // A frame whose header is known and whose body is on its way.
    XPCFrameHeader header_;
    XPCBody body_;
    std::size_t bodyFill_ = 0;
    XPCAttachments attachments_;

    // Received, not yet claimed by a header.
    std::array<UniqueFd, kWaitingDescriptors> waiting_;
    std::size_t waitingCount_ = 0;
};

} // namespace port
