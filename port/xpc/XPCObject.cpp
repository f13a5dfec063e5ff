#include "xpc/XPCObject.h"

#include <array>

namespace {

constexpr _xpc_type_s kConnection{port::XPCTag::Connection};
constexpr _xpc_type_s kDictionary{port::XPCTag::Dictionary};
constexpr _xpc_type_s kError{port::XPCTag::Error};

// Indexed by tag.
constexpr std::array<_xpc_type_s, 10> kValues{{{port::XPCTag::None},
                                               {port::XPCTag::Bool},
                                               {port::XPCTag::Int64},
                                               {port::XPCTag::UInt64},
                                               {port::XPCTag::Double},
                                               {port::XPCTag::Date},
                                               {port::XPCTag::Data},
                                               {port::XPCTag::UUID},
                                               {port::XPCTag::String},
                                               {port::XPCTag::FD}}};

constexpr xpc_type_t valueType(port::XPCTag tag) {
    return &kValues[static_cast<std::size_t>(tag)];
}

class ValueMarker final : public port::XPCObject {
public:
    constexpr explicit ValueMarker(port::XPCTag tag) : XPCObject(valueType(tag), Lifetime::Immortal) {}

private:
    void dispose() noexcept override {}
};

// Indexed by tag, None left out.
constinit std::array<ValueMarker, 9> markers{
    ValueMarker{port::XPCTag::Bool},   ValueMarker{port::XPCTag::Int64},  ValueMarker{port::XPCTag::UInt64},
    ValueMarker{port::XPCTag::Double}, ValueMarker{port::XPCTag::Date},   ValueMarker{port::XPCTag::Data},
    ValueMarker{port::XPCTag::UUID},   ValueMarker{port::XPCTag::String}, ValueMarker{port::XPCTag::FD}};

} // namespace

constinit const xpc_type_t XPC_TYPE_CONNECTION = &kConnection;
constinit const xpc_type_t XPC_TYPE_DICTIONARY = &kDictionary;
constinit const xpc_type_t XPC_TYPE_ERROR = &kError;
constinit const xpc_type_t XPC_TYPE_BOOL = valueType(port::XPCTag::Bool);
constinit const xpc_type_t XPC_TYPE_INT64 = valueType(port::XPCTag::Int64);
constinit const xpc_type_t XPC_TYPE_UINT64 = valueType(port::XPCTag::UInt64);
constinit const xpc_type_t XPC_TYPE_DOUBLE = valueType(port::XPCTag::Double);
constinit const xpc_type_t XPC_TYPE_DATE = valueType(port::XPCTag::Date);
constinit const xpc_type_t XPC_TYPE_DATA = valueType(port::XPCTag::Data);
constinit const xpc_type_t XPC_TYPE_UUID = valueType(port::XPCTag::UUID);
constinit const xpc_type_t XPC_TYPE_STRING = valueType(port::XPCTag::String);
constinit const xpc_type_t XPC_TYPE_FD = valueType(port::XPCTag::FD);

constinit _xpc_error_s _xpc_error_connection_invalid{&kError};
constinit _xpc_error_s _xpc_error_connection_interrupted{&kError};
constinit _xpc_error_s _xpc_error_termination_imminent{&kError};

namespace port {

XPCObject* xpcValueMarker(XPCTag tag) {
    const auto index = static_cast<std::size_t>(tag) - 1; // None wraps past the end
    return index < markers.size() ? &markers[index] : nullptr;
}

} // namespace port

xpc_object_t xpc_retain(xpc_object_t object) {
    if (object != nullptr)
        port::XPCObject::from(object)->retain();
    return object;
}

void xpc_release(xpc_object_t object) {
    if (object != nullptr)
        port::XPCObject::from(object)->release();
}

xpc_type_t xpc_get_type(xpc_object_t object) {
    return object == nullptr ? nullptr : port::XPCObject::from(object)->type();
}
