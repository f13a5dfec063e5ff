#include "carbon/Event.h"

#include <algorithm>

namespace {

bool sameType(const EventTypeSpec& one, const EventTypeSpec& other) {
    return one.eventClass == other.eventClass && one.eventKind == other.eventKind;
}

} // namespace

bool OpaqueEventRef::isOneOf(std::span<const EventTypeSpec> types) const {
    return std::any_of(types.begin(), types.end(),
                       [this](const EventTypeSpec& type) { return sameType(type, type_); });
}

OpaqueEventRef::Parameter* OpaqueEventRef::parameter(EventParamName name) {
    for (std::size_t i = 0; i < usualCount_; ++i)
        if (usual_[i].name == name)
            return &usual_[i];
    if (further_ == nullptr)
        return nullptr;
    const auto found = std::ranges::find(*further_, name, &Parameter::name);
    return found == further_->end() ? nullptr : &*found;
}

void OpaqueEventRef::setParameter(EventParamName name, EventParamType type, std::span<const char> bytes) {
    Parameter* place = parameter(name);
    if (place == nullptr && usualCount_ < kUsualParameters) {
        place = &usual_[usualCount_++];
    } else if (place == nullptr) {
        if (further_ == nullptr)
            further_ = std::make_unique<std::vector<Parameter>>();
        place = &further_->emplace_back();
    }
    place->name = name;
    place->type = type;
    place->setBytes(bytes);
}

void OpaqueEventRef::Parameter::setBytes(std::span<const char> bytes) {
    large.reset(bytes.size() > small.size() ? new char[bytes.size()] : nullptr);
    size = bytes.size();
    std::ranges::copy(bytes, large ? large.get() : small.data());
}

OSStatus CreateEvent(CFAllocatorRef /*allocator*/, OSType eventClass, UInt32 kind, EventTime /*when*/,
                     EventAttributes /*attributes*/, EventRef* event) {
    *event = new OpaqueEventRef(eventClass, kind);
    return noErr;
}

EventRef RetainEvent(EventRef event) {
    event->retain();
    return event;
}

void ReleaseEvent(EventRef event) {
    event->release();
}

OSType GetEventClass(EventRef event) {
    return event->type().eventClass;
}

UInt32 GetEventKind(EventRef event) {
    return event->type().eventKind;
}

OSStatus SetEventParameter(EventRef event, EventParamName name, EventParamType type, ByteCount size,
                           const void* data) {
    if (data == nullptr && size != 0)
        return paramErr;
    event->setParameter(name, type, {static_cast<const char*>(data), size});
    return noErr;
}

OSStatus GetEventParameter(EventRef event, EventParamName name, EventParamType type,
                           EventParamType* actualType, ByteCount size, ByteCount* actualSize, void* data) {
    const OpaqueEventRef::Parameter* const parameter = event->parameter(name);
    if (parameter == nullptr || parameter->type != type)
        return eventParameterNotFoundErr;
    if (actualType != nullptr)
        *actualType = parameter->type;
    if (actualSize != nullptr)
        *actualSize = parameter->size;
    if (data != nullptr)
        std::ranges::copy(parameter->bytes().first(std::min(size, parameter->size)),
                          static_cast<char*>(data));
    return noErr;
}
