#include "xpc/XPCDictionary.h"

#include "host/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace port {
namespace {

constexpr std::size_t kMaxBodyBytes = kMaxFrameBytes - sizeof(XPCFrameHeader);
constexpr std::size_t kWord = 8;

std::size_t attachedLength(const XPCEntryHeader& entry) {
    return entry.attached != 0 ? entry.valueBytes : 0;
}

// Padding is zeroed first, so that no stale memory travels.
void writeEntry(std::byte* start, std::string_view key, const XPCEntryHeader& header, const void* value) {
    std::memset(start + header.totalBytes() - kWord, 0, kWord);
    std::memset(start + header.valueOffset() - kWord, 0, kWord);
    std::memcpy(start, &header, sizeof header);
    std::memcpy(start + sizeof header, key.data(), key.size());
    if (header.attached == 0 && header.valueBytes != 0)
        std::memcpy(start + header.valueOffset(), value, header.valueBytes);
}

} // namespace

// The inline body stays as it is: every byte is written before it is read.
XPCDictionary::XPCDictionary() : XPCObject(XPC_TYPE_DICTIONARY) {
    body_ = inline_.data();
}

XPCRef<XPCDictionary> XPCDictionary::create() {
    return XPCRef<XPCDictionary>(new XPCDictionary);
}

XPCDictionary* XPCDictionary::from(xpc_object_t object) {
    XPCObject* const any = XPCObject::from(object);
    return any != nullptr && any->type() == XPC_TYPE_DICTIONARY ? static_cast<XPCDictionary*>(any) : nullptr;
}

void XPCDictionary::set(std::string_view key, XPCTag tag, const void* value, std::size_t length) {
    if (!isOpen())
        return;
    if (key.size() > kMaxKeyBytes || length > kMaxMessageBytes) {
        poisoned_ = true;
        return;
    }
    const bool attached = length > kMaxInlineValueBytes;
    const XPCEntryHeader header{tag, static_cast<std::uint8_t>(attached ? 1 : 0),
                                static_cast<std::uint16_t>(key.size()), static_cast<std::uint32_t>(length)};
    UniqueFd file;
    if (attached)
        file = makeValueFile(value, length);
    poisoned_ = (attached && !file) || !store(key, header, value, std::move(file));
}

void XPCDictionary::setDescriptor(std::string_view key, int descriptor) {
    if (!isOpen())
        return;
    UniqueFd copy(sys::duplicate(descriptor));
    if (!copy && errno == EBADF)
        return;
    const XPCEntryHeader header{XPCTag::FD, 0, static_cast<std::uint16_t>(key.size()), 0};
    poisoned_ = !copy || key.size() > kMaxKeyBytes || !store(key, header, nullptr, std::move(copy));
}

// The new value is in place before the old one goes: `value` may point into this very dictionary.
bool XPCDictionary::store(std::string_view key, const XPCEntryHeader& header, const void* value,
                          UniqueFd descriptor) {
    const XPCEntry old = find(key);
    if (!fits(header, old.header))
        return false;
    if (old.start == nullptr)
        return append(key, header, value, std::move(descriptor));
    if (old.header.hasDescriptor() == header.hasDescriptor() &&
        old.header.totalBytes() == header.totalBytes()) {
        overwrite(old, header, value, std::move(descriptor));
        return true;
    }
    const auto offset = static_cast<std::size_t>(old.start - body_);
    if (!append(key, header, value, std::move(descriptor)))
        return false;
    remove(offset, old.descriptorIndex);
    return true;
}

bool XPCDictionary::fits(const XPCEntryHeader& fresh, const XPCEntryHeader& replaced) const {
    const bool replaces = replaced.tag != XPCTag::None;
    const std::size_t body = bodyBytes_ + fresh.totalBytes() - (replaces ? replaced.totalBytes() : 0);
    const std::uint64_t attached = attachedBytes_ + attachedLength(fresh) - attachedLength(replaced);
    return body <= kMaxBodyBytes && sizeof(XPCFrameHeader) + body + attached <= kMaxMessageBytes &&
           (replaces || keyCount_ < kMaxKeys);
}

void XPCDictionary::overwrite(const XPCEntry& old, const XPCEntryHeader& header, const void* value,
                              UniqueFd descriptor) {
    attachedBytes_ += attachedLength(header);
    attachedBytes_ -= attachedLength(old.header);
    std::byte* const start = body_ + (old.start - body_);
    std::memcpy(start, &header, sizeof header);
    if (header.hasDescriptor()) {
        attachments_.replaceAt(old.descriptorIndex, std::move(descriptor), attachedLength(header));
        return;
    }
    std::byte* const place = start + header.valueOffset();
    if (header.valueBytes != 0)
        std::memmove(place, value, header.valueBytes);
    std::memset(place + header.valueBytes, 0, XPCEntryHeader::padded(header.valueBytes) - header.valueBytes);
}

bool XPCDictionary::append(std::string_view key, const XPCEntryHeader& header, const void* value,
                           UniqueFd descriptor) {
    XPCBody retired;
    std::byte* const start = grow(header.totalBytes(), retired);
    if (start == nullptr)
        return false;
    if (header.hasDescriptor()) {
        if (!attachments_.append(std::move(descriptor)))
            return false;
        if (header.attached != 0 && !attachments_.acceptValue(attachments_.size() - 1, header.valueBytes))
            return false;
    }
    writeEntry(start, key, header, value);
    bodyBytes_ += static_cast<std::uint32_t>(header.totalBytes());
    attachedBytes_ += attachedLength(header);
    ++keyCount_;
    return true;
}

// Room behind the last entry; the memory that it replaces is handed out, to be freed after the copy.
std::byte* XPCDictionary::grow(std::size_t extra, XPCBody& retired) {
    const std::size_t needed = bodyBytes_ + extra;
    if (needed > capacity_) {
        const std::size_t capacity = std::max<std::size_t>(needed, std::size_t{capacity_} * 2);
        XPCBody fresh = makeXPCBody(capacity);
        if (fresh == nullptr)
            return nullptr;
        std::memcpy(fresh.get(), body_, bodyBytes_);
        retired = std::exchange(heap_, std::move(fresh));
        body_ = heap_.get();
        capacity_ = static_cast<std::uint32_t>(capacity);
    }
    return body_ + bodyBytes_;
}

void XPCDictionary::remove(std::size_t offset, std::size_t descriptorIndex) {
    const auto header = XPCEntryHeader::at(body_ + offset);
    const std::size_t next = offset + header.totalBytes();
    std::memmove(body_ + offset, body_ + next, bodyBytes_ - next);
    bodyBytes_ -= static_cast<std::uint32_t>(header.totalBytes());
    attachedBytes_ -= attachedLength(header);
    --keyCount_;
    if (header.hasDescriptor())
        attachments_.removeAt(descriptorIndex);
}

XPCEntry XPCDictionary::find(std::string_view key) const {
    std::size_t descriptors = 0;
    const std::byte* const end = body_ + bodyBytes_;
    for (const std::byte* place = body_; place != end;) {
        const auto header = XPCEntryHeader::at(place);
        if (header.keyBytes == key.size() && std::memcmp(place + sizeof header, key.data(), key.size()) == 0)
            return {header, place, descriptors};
        descriptors += header.hasDescriptor() ? 1 : 0;
        place += header.totalBytes();
    }
    return {};
}

const void* XPCDictionary::valueBytes(const XPCEntry& entry) const {
    return entry.header.attached != 0 ? attachments_.map(entry.descriptorIndex) : entry.bytes();
}

bool XPCDictionary::seal() {
    if (poisoned_)
        return false;
    sealed_.store(true, std::memory_order_relaxed);
    return true;
}

XPCFrameHeader XPCDictionary::header() const {
    XPCFrameHeader header;
    header.bodyBytes = bodyBytes_;
    header.descriptorCount = static_cast<std::uint16_t>(attachments_.size());
    header.keyCount = keyCount_;
    header.attachedBytes = attachedBytes_;
    return header;
}

bool XPCDictionary::passesDescriptors() const {
    std::size_t attached = 0;
    for (std::size_t offset = 0; attachments_.size() != 0 && offset != bodyBytes_;) {
        const auto entry = XPCEntryHeader::at(body_ + offset);
        attached += entry.attached;
        offset += entry.totalBytes();
    }
    return attached != attachments_.size();
}

XPCRef<XPCDictionary> XPCDictionary::createReply() {
    if (kind_ != XPCFrameKind::MessageWantsReply || replyTaken_.exchange(true, std::memory_order_relaxed))
        return {};
    auto reply = create();
    reply->kind_ = XPCFrameKind::Reply;
    reply->replyId_ = replyId_;
    reply->remoteConnection_ = remoteConnection_;
    return reply;
}

XPCRef<XPCDictionary> XPCDictionary::receive(const XPCFrameHeader& header, std::span<const std::byte> body,
                                             XPCAttachments attachments) {
    if (!bodyIsValid(header, body))
        return {};
    XPCBody copy;
    if (body.size() > kInlineBytes) {
        copy = makeReceivedXPCBody(body.size());
        if (copy == nullptr)
            return {};
        std::memcpy(copy.get(), body.data(), body.size());
    }
    auto frame = received(header, std::move(copy), std::move(attachments));
    if (frame->heap_ == nullptr && !body.empty())
        std::memcpy(frame->body_, body.data(), body.size());
    return frame->acceptAttachedValues() ? std::move(frame) : XPCRef<XPCDictionary>();
}

XPCRef<XPCDictionary> XPCDictionary::receive(const XPCFrameHeader& header, XPCBody body,
                                             XPCAttachments attachments) {
    if (!bodyIsValid(header, {body.get(), header.bodyBytes}))
        return {};
    auto frame = received(header, std::move(body), std::move(attachments));
    return frame->acceptAttachedValues() ? std::move(frame) : XPCRef<XPCDictionary>();
}

// A sealed dictionary with everything but the bytes of an inline body.
XPCRef<XPCDictionary> XPCDictionary::received(const XPCFrameHeader& header, XPCBody heap,
                                              XPCAttachments attachments) {
    auto frame = create();
    frame->heap_ = std::move(heap);
    if (frame->heap_ != nullptr)
        frame->body_ = frame->heap_.get();
    frame->bodyBytes_ = header.bodyBytes;
    frame->attachedBytes_ = header.attachedBytes;
    frame->keyCount_ = header.keyCount;
    frame->kind_ = header.kind;
    frame->replyId_ = header.replyId;
    frame->attachments_ = std::move(attachments);
    frame->sealed_.store(true, std::memory_order_relaxed);
    return frame;
}

bool XPCDictionary::acceptAttachedValues() {
    if (attachedBytes_ == 0)
        return true;
    std::size_t descriptors = 0;
    for (std::size_t offset = 0; offset != bodyBytes_;) {
        const auto header = XPCEntryHeader::at(body_ + offset);
        if (header.attached != 0 && !attachments_.acceptValue(descriptors, header.valueBytes))
            return false;
        descriptors += header.hasDescriptor() ? 1 : 0;
        offset += header.totalBytes();
    }
    return true;
}

} // namespace port
