#include "carbon/Event.h"

#include <algorithm>
#include <vector>

struct OpaqueEventHandlerRef {
    EventHandlerUPP procedure;
    std::vector<EventTypeSpec> types;
    void* userData;
};

// The application's handlers, in the order of their installation. Both targets are this one.
struct OpaqueEventTargetRef {
    static OpaqueEventTargetRef& shared() {
        static OpaqueEventTargetRef& target = *new OpaqueEventTargetRef;
        return target;
    }

    OSStatus send(OpaqueEventRef& event);
    bool remove(OpaqueEventHandlerRef* handler);

    // Null: removed while a dispatch was under way.
    std::vector<OpaqueEventHandlerRef*> handlers;

private:
    unsigned depth_ = 0;
};

// By index: a handler may install and remove handlers, and may wait for further events.
OSStatus OpaqueEventTargetRef::send(OpaqueEventRef& event) {
    OSStatus status = eventNotHandledErr;
    ++depth_;
    for (std::size_t i = handlers.size(); i-- > 0 && status == eventNotHandledErr;) {
        const OpaqueEventHandlerRef* const handler = handlers[i];
        if (handler != nullptr && event.isOneOf(handler->types))
            status = handler->procedure(nullptr, &event, handler->userData);
    }
    if (--depth_ == 0)
        std::erase(handlers, nullptr);
    return status;
}

bool OpaqueEventTargetRef::remove(OpaqueEventHandlerRef* handler) {
    const auto place = std::ranges::find(handlers, handler);
    if (handler == nullptr || place == handlers.end())
        return false;
    delete handler;
    if (depth_ == 0)
        handlers.erase(place);
    else
        *place = nullptr;
    return true;
}

EventTargetRef GetApplicationEventTarget() {
    return &OpaqueEventTargetRef::shared();
}

EventTargetRef GetEventDispatcherTarget() {
    return GetApplicationEventTarget();
}

OSStatus SendEventToEventTarget(EventRef event, EventTargetRef target) {
    if (event == nullptr || target == nullptr)
        return paramErr;
    return target->send(*event);
}

EventHandlerUPP NewEventHandlerUPP(EventHandlerProcPtr handler) {
    return handler;
}

void DisposeEventHandlerUPP(EventHandlerUPP /*handler*/) {}

OSStatus InstallEventHandler(EventTargetRef target, EventHandlerUPP handler, ItemCount typeCount,
                             const EventTypeSpec* types, void* userData, EventHandlerRef* handlerRef) {
    if (target == nullptr || handler == nullptr || typeCount == 0 || types == nullptr)
        return paramErr;
    auto* const installed = new OpaqueEventHandlerRef{handler, {types, types + typeCount}, userData};
    target->handlers.push_back(installed);
    if (handlerRef != nullptr)
        *handlerRef = installed;
    return noErr;
}

OSStatus RemoveEventHandler(EventHandlerRef handler) {
    return OpaqueEventTargetRef::shared().remove(handler) ? noErr : paramErr;
}
