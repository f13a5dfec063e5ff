// The dictionary: its memory is the body of its frame, so building is appending, sending is writing it out
// and receiving is one check.
//
// Thread-safety: building belongs to one thread. A sealed dictionary (sent, or received) does not change and
// may be read and sent from any thread.
//
// Failure: a value that cannot be stored (a limit, no memory) poisons the dictionary, which is then never
// sent; setters on a sealed dictionary do nothing.
#pragma once

#include "xpc/XPCAttachments.h"
#include "xpc/XPCFrame.h"
#include "xpc/XPCObject.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace port {

// One value as it lies in a dictionary. `bytes` points into the body; for an attached value and a descriptor
// it is null and `descriptorIndex` counts.
struct XPCEntry {
    XPCEntryHeader header;
    const std::byte* start = nullptr;
    std::size_t descriptorIndex = 0;

    const std::byte* bytes() const { return start + header.valueOffset(); }
    std::string_view key() const {
        return {reinterpret_cast<const char*>(start) + sizeof(XPCEntryHeader), header.keyBytes};
    }
};

class XPCDictionary final : public XPCObject {
public:
    // An empty dictionary with one reference.
    static XPCRef<XPCDictionary> create();
    // The dictionary of a received frame, sealed, its body copied. Null when the frame is malformed (or
    // memory is short for its body); the descriptors are closed then. `header` is valid.
    static XPCRef<XPCDictionary> receive(const XPCFrameHeader& header, std::span<const std::byte> body,
                                         XPCAttachments attachments);
    // The same, for a body that was read into memory of its own (header.bodyBytes long), which is taken over.
    static XPCRef<XPCDictionary> receive(const XPCFrameHeader& header, XPCBody body,
                                         XPCAttachments attachments);
    // The dictionary behind a handle; null for null and for other objects.
    static XPCDictionary* from(xpc_object_t object);

    // Copies the value. `length` counts a text's terminator. The same key replaces.
    void set(std::string_view key, XPCTag tag, const void* value, std::size_t length);
    // Stores a duplicate. A bad descriptor changes nothing.
    void setDescriptor(std::string_view key, int descriptor);

    // The first entry under the key; `header.tag` is None when there is none.
    XPCEntry find(std::string_view key) const;
    // The bytes of a text or data value, wherever they lie; null when they cannot be mapped.
    const void* valueBytes(const XPCEntry& entry) const;

    // Ends building. False when the dictionary is poisoned and must not be sent.
    bool seal();
    // What a frame header says about this dictionary; kind Message, reply id 0.
    XPCFrameHeader header() const;
    std::span<const std::byte> body() const { return {body_, bodyBytes_}; }
    const XPCAttachments& attachments() const { return attachments_; }
    // True when some of them are values themselves, and hold none.
    bool passesDescriptors() const;

    // Where it came from. A received dictionary keeps the kind and reply id of its frame; one made by
    // `createReply` is a Reply with the id that it answers; any other is a Message. The connection, null at
    // first, is retained by the dictionary.
    XPCFrameKind kind() const { return kind_; }
    std::uint64_t replyId() const { return replyId_; }
    XPCObject* remoteConnection() const { return remoteConnection_.get(); }
    void setRemoteConnection(XPCObject* connection) {
        remoteConnection_ = XPCRef<XPCObject>::retained(connection);
    }
    // The one reply to a message that wants one, with the message's connection; null for any other
    // dictionary and from the second call on.
    XPCRef<XPCDictionary> createReply();

private:
    // Most messages of a few short values fit the object itself.
    static constexpr std::size_t kInlineBytes = 256;

    XPCDictionary();
    ~XPCDictionary() = default;
    void dispose() noexcept override { delete this; }

    bool isOpen() const { return !poisoned_ && !sealed_.load(std::memory_order_relaxed); }
    bool store(std::string_view key, const XPCEntryHeader& header, const void* value, UniqueFd descriptor);
    bool fits(const XPCEntryHeader& fresh, const XPCEntryHeader& replaced) const;
    void overwrite(const XPCEntry& old, const XPCEntryHeader& header, const void* value, UniqueFd descriptor);
    bool append(std::string_view key, const XPCEntryHeader& header, const void* value, UniqueFd descriptor);
    std::byte* grow(std::size_t extra, XPCBody& retired);
    void remove(std::size_t offset, std::size_t descriptorIndex);
    static XPCRef<XPCDictionary> received(const XPCFrameHeader& header, XPCBody heap,
                                          XPCAttachments attachments);
    bool acceptAttachedValues();

    std::byte* body_ = nullptr; // heap_ or inline_
    std::uint32_t bodyBytes_ = 0;
    std::uint32_t capacity_ = kInlineBytes;
    std::uint64_t attachedBytes_ = 0;
    std::uint16_t keyCount_ = 0;
    XPCFrameKind kind_ = XPCFrameKind::Message;
    bool poisoned_ = false;
    std::atomic<bool> sealed_{false};
    std::atomic<bool> replyTaken_{false};
    std::uint64_t replyId_ = 0;
    XPCRef<XPCObject> remoteConnection_;
    XPCBody heap_;
    XPCAttachments attachments_;
    alignas(8) std::array<std::byte, kInlineBytes> inline_;
};

} // namespace port
