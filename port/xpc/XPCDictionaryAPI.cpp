#include "xpc/XPCDictionary.h"

#include <cstring>

using port::XPCDictionary;
using port::XPCEntry;
using port::XPCTag;

namespace {

void store(xpc_object_t dictionary, const char* key, XPCTag tag, const void* value, std::size_t length) {
    XPCDictionary* const target = XPCDictionary::from(dictionary);
    if (target != nullptr && key != nullptr && (value != nullptr || length == 0))
        target->set(key, tag, value, length);
}

// The entry under the key when it has the type; else one with the tag None.
XPCEntry lookUp(xpc_object_t dictionary, const char* key, XPCTag tag) {
    const XPCDictionary* const source = XPCDictionary::from(dictionary);
    if (source == nullptr || key == nullptr)
        return {};
    const XPCEntry entry = source->find(key);
    return entry.header.tag == tag ? entry : XPCEntry{};
}

template <typename T>
T scalar(xpc_object_t dictionary, const char* key, XPCTag tag) {
    static_assert(sizeof(T) == 8);
    T value{};
    const XPCEntry entry = lookUp(dictionary, key, tag);
    if (entry.start != nullptr)
        std::memcpy(&value, entry.bytes(), sizeof value);
    return value;
}

const void* bytesOf(xpc_object_t dictionary, const XPCEntry& entry) {
    return entry.start == nullptr ? nullptr : XPCDictionary::from(dictionary)->valueBytes(entry);
}

} // namespace

// No value exists outside a dictionary, so there is nothing that `keys` and `values` could add.
xpc_object_t xpc_dictionary_create(const char* const* /*keys*/, const xpc_object_t* /*values*/,
                                   std::size_t /*count*/) {
    return XPCDictionary::create().release();
}

xpc_object_t xpc_dictionary_create_reply(xpc_object_t original) {
    XPCDictionary* const message = XPCDictionary::from(original);
    return message == nullptr ? nullptr : message->createReply().release();
}

xpc_object_t xpc_dictionary_get_value(xpc_object_t dictionary, const char* key) {
    const XPCDictionary* const source = XPCDictionary::from(dictionary);
    if (source == nullptr || key == nullptr)
        return nullptr;
    return port::xpcValueMarker(source->find(key).header.tag);
}

void xpc_dictionary_set_bool(xpc_object_t dictionary, const char* key, bool value) {
    const std::uint64_t wide = value ? 1 : 0;
    store(dictionary, key, XPCTag::Bool, &wide, sizeof wide);
}

void xpc_dictionary_set_int64(xpc_object_t dictionary, const char* key, std::int64_t value) {
    store(dictionary, key, XPCTag::Int64, &value, sizeof value);
}

void xpc_dictionary_set_uint64(xpc_object_t dictionary, const char* key, std::uint64_t value) {
    store(dictionary, key, XPCTag::UInt64, &value, sizeof value);
}

void xpc_dictionary_set_double(xpc_object_t dictionary, const char* key, double value) {
    store(dictionary, key, XPCTag::Double, &value, sizeof value);
}

void xpc_dictionary_set_date(xpc_object_t dictionary, const char* key, std::int64_t value) {
    store(dictionary, key, XPCTag::Date, &value, sizeof value);
}

void xpc_dictionary_set_data(xpc_object_t dictionary, const char* key, const void* bytes,
                             std::size_t length) {
    store(dictionary, key, XPCTag::Data, bytes, length);
}

void xpc_dictionary_set_uuid(xpc_object_t dictionary, const char* key, const std::uint8_t* uuid) {
    store(dictionary, key, XPCTag::UUID, uuid, 16);
}

void xpc_dictionary_set_string(xpc_object_t dictionary, const char* key, const char* string) {
    if (string != nullptr)
        store(dictionary, key, XPCTag::String, string, std::strlen(string) + 1);
}

void xpc_dictionary_set_fd(xpc_object_t dictionary, const char* key, int fd) {
    XPCDictionary* const target = XPCDictionary::from(dictionary);
    if (target != nullptr && key != nullptr)
        target->setDescriptor(key, fd);
}

bool xpc_dictionary_get_bool(xpc_object_t dictionary, const char* key) {
    return scalar<std::uint64_t>(dictionary, key, XPCTag::Bool) != 0;
}

std::int64_t xpc_dictionary_get_int64(xpc_object_t dictionary, const char* key) {
    return scalar<std::int64_t>(dictionary, key, XPCTag::Int64);
}

std::uint64_t xpc_dictionary_get_uint64(xpc_object_t dictionary, const char* key) {
    return scalar<std::uint64_t>(dictionary, key, XPCTag::UInt64);
}

double xpc_dictionary_get_double(xpc_object_t dictionary, const char* key) {
    return scalar<double>(dictionary, key, XPCTag::Double);
}

std::int64_t xpc_dictionary_get_date(xpc_object_t dictionary, const char* key) {
    return scalar<std::int64_t>(dictionary, key, XPCTag::Date);
}

const void* xpc_dictionary_get_data(xpc_object_t dictionary, const char* key, std::size_t* length) {
    const XPCEntry entry = lookUp(dictionary, key, XPCTag::Data);
    const void* const bytes = bytesOf(dictionary, entry);
    if (length != nullptr)
        *length = bytes == nullptr ? 0 : entry.header.valueBytes;
    return bytes;
}

const std::uint8_t* xpc_dictionary_get_uuid(xpc_object_t dictionary, const char* key) {
    const XPCEntry entry = lookUp(dictionary, key, XPCTag::UUID);
    return static_cast<const std::uint8_t*>(bytesOf(dictionary, entry));
}

const char* xpc_dictionary_get_string(xpc_object_t dictionary, const char* key) {
    const XPCEntry entry = lookUp(dictionary, key, XPCTag::String);
    const auto* const text = static_cast<const char*>(bytesOf(dictionary, entry));
    // The content of a memory file is not part of the check at receipt.
    return text != nullptr && text[entry.header.valueBytes - 1] == '\0' ? text : nullptr;
}

int xpc_dictionary_dup_fd(xpc_object_t dictionary, const char* key) {
    const XPCEntry entry = lookUp(dictionary, key, XPCTag::FD);
    if (entry.start == nullptr)
        return -1;
    return XPCDictionary::from(dictionary)->attachments().duplicate(entry.descriptorIndex);
}
