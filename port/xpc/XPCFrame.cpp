#include "xpc/XPCFrame.h"

namespace port {
namespace {

// Value lengths that a type allows, for a value inside the body.
bool inlineLengthFits(XPCTag tag, std::size_t bytes) {
    switch (tag) {
    case XPCTag::Bool:
    case XPCTag::Int64:
    case XPCTag::UInt64:
    case XPCTag::Double:
    case XPCTag::Date:
        return bytes == 8;
    case XPCTag::UUID:
        return bytes == 16;
    case XPCTag::Data:
        return bytes <= kMaxInlineValueBytes;
    case XPCTag::String:
        return bytes >= 1 && bytes <= kMaxInlineValueBytes;
    case XPCTag::FD:
        return bytes == 0;
    default:
        return false;
    }
}

bool valueFits(const XPCEntryHeader& entry) {
    switch (entry.attached) {
    case 0:
        return inlineLengthFits(entry.tag, entry.valueBytes);
    case 1:
        return (entry.tag == XPCTag::Data || entry.tag == XPCTag::String) &&
               entry.valueBytes > kMaxInlineValueBytes;
    default:
        return false;
    }
}

bool keyIsSound(const char* key, std::size_t bytes) {
    return std::memchr(key, '\0', bytes + 1) == key + bytes;
}

bool inlineValueIsSound(XPCTag tag, const std::byte* value, std::size_t bytes) {
    if (tag == XPCTag::String)
        return value[bytes - 1] == std::byte{0};
    if (tag != XPCTag::Bool)
        return true;
    std::uint64_t flag = 0;
    std::memcpy(&flag, value, sizeof flag);
    return flag <= 1;
}

// True when the entry at the front of `rest` lies wholly inside it and is well-formed.
bool entryIsSound(const XPCEntryHeader& entry, std::span<const std::byte> rest) {
    if (!valueFits(entry) || entry.keyBytes > kMaxKeyBytes || entry.totalBytes() > rest.size())
        return false;
    if (!keyIsSound(reinterpret_cast<const char*>(rest.data()) + sizeof entry, entry.keyBytes))
        return false;
    return entry.attached != 0 ||
           inlineValueIsSound(entry.tag, rest.data() + entry.valueOffset(), entry.valueBytes);
}

} // namespace

bool XPCFrameHeader::isValid() const {
    if (magic != kFrameMagic || version != kFrameVersion || flags != 0)
        return false;
    if (kind < XPCFrameKind::Message || kind > XPCFrameKind::Reply)
        return false;
    if ((kind == XPCFrameKind::Message) != (replyId == 0))
        return false;
    if (bodyBytes % 8 != 0 || bodyBytes > kMaxFrameBytes - sizeof *this)
        return false;
    if (keyCount > kMaxKeys || descriptorCount > kMaxDescriptors || descriptorCount > keyCount)
        return false;
    return attachedBytes <= kMaxMessageBytes - sizeof *this - bodyBytes;
}

bool bodyIsValid(const XPCFrameHeader& header, std::span<const std::byte> body) {
    std::size_t keys = 0;
    std::size_t descriptors = 0;
    std::uint64_t attached = 0;
    for (auto rest = body; !rest.empty(); ++keys) {
        if (rest.size() < sizeof(XPCEntryHeader))
            return false;
        const auto entry = XPCEntryHeader::at(rest.data());
        if (!entryIsSound(entry, rest))
            return false;
        descriptors += entry.hasDescriptor() ? 1 : 0;
        attached += entry.attached != 0 ? entry.valueBytes : 0;
        rest = rest.subspan(entry.totalBytes());
    }
    return body.size() == header.bodyBytes && keys == header.keyCount &&
           descriptors == header.descriptorCount && attached == header.attachedBytes;
}

} // namespace port
