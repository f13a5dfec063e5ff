// The frame on the wire: a fixed header, then a body of entries. docs/wire-format.md draws both by byte.
//
// Thread-safety: plain values and pure functions.
#pragma once

#include "xpc/XPCHold.h"
#include "xpc/XPCLimits.h"
#include "xpc/XPCObject.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string_view>

namespace port {

static_assert(std::endian::native == std::endian::little, "the wire is little-endian and read in place");

enum class XPCFrameKind : std::uint8_t {
    Message = 1,           // reply id 0
    MessageWantsReply = 2, // reply id chosen by the sender, not 0
    Reply = 3,             // reply id of the message that it answers
};

constexpr std::uint32_t kFrameMagic = 0x43505850; // "PXPC"
constexpr std::uint8_t kFrameVersion = 1;

struct XPCFrameHeader {
    std::uint32_t magic = kFrameMagic;
    std::uint8_t version = kFrameVersion;
    XPCFrameKind kind = XPCFrameKind::Message;
    std::uint16_t flags = 0; // none are defined
    std::uint64_t replyId = 0;
    std::uint32_t bodyBytes = 0;       // a multiple of 8
    std::uint16_t descriptorCount = 0; // that travel with the frame, memory files included
    std::uint16_t keyCount = 0;
    std::uint64_t attachedBytes = 0; // sum of the values in memory files

    // True when every field is within the limits and agrees with the others; nothing is to be allocated for
    // a header that is not.
    bool isValid() const;
};
static_assert(sizeof(XPCFrameHeader) == 32);

// The fixed part of an entry. The key follows with its terminator, padded to 8 bytes, then the value, padded
// to 8 bytes. An attached value and a descriptor stand outside the body: the n-th entry of these two sorts
// owns the n-th descriptor of the frame.
struct XPCEntryHeader {
    XPCTag tag = XPCTag::None;
    std::uint8_t attached = 0;  // 1: the value is the whole of a memory file
    std::uint16_t keyBytes = 0; // without terminator
    std::uint32_t valueBytes = 0;

    bool hasDescriptor() const { return attached != 0 || tag == XPCTag::FD; }
    std::size_t valueOffset() const { return sizeof(XPCEntryHeader) + padded(std::size_t{keyBytes} + 1); }
    std::size_t totalBytes() const { return valueOffset() + (attached != 0 ? 0 : padded(valueBytes)); }

    static constexpr std::size_t padded(std::size_t bytes) { return (bytes + 7) & ~std::size_t{7}; }
    static XPCEntryHeader at(const std::byte* place) {
        XPCEntryHeader header;
        std::memcpy(&header, place, sizeof header);
        return header;
    }
};
static_assert(sizeof(XPCEntryHeader) == 8);

// True when `body` is exactly what `header`, itself valid, promises: lengths, terminators, types, key count,
// descriptor count and attached total. Reads at any alignment. Only a body that has passed is walked without
// checks. Keys need not be UTF-8; of two entries with one key the first counts.
bool bodyIsValid(const XPCFrameHeader& header, std::span<const std::byte> body);

// Memory for a body. Whatever it holds at first is written over; null without memory.
struct XPCBodyEnd {
    XPCHold hold;

    void operator()(const std::byte* body) {
        delete[] body;
        hold = {};
    }
};
using XPCBody = std::unique_ptr<std::byte[], XPCBodyEnd>;
inline XPCBody makeXPCBody(std::size_t bytes) {
    auto* const body = new (std::nothrow) std::byte[bytes];
    return XPCBody(body, XPCBodyEnd{XPCHold(body != nullptr ? bytes : 0)});
}
// The same for what a peer sends: null too when peers make this process hold too much.
inline XPCBody makeReceivedXPCBody(std::size_t bytes) {
    if (!XPCHold::hasRoom(bytes))
        return {};
    return makeXPCBody(bytes);
}

} // namespace port
