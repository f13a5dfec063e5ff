#include "corefoundation/CFSocket.h"

#include "corefoundation/CFRunLoop.h"
#include "dispatch/MainLoop.h"
#include "host/SystemCalls.h"

#include <utility>

CFOptionFlags __CFSocket::flags() const {
    const std::lock_guard lock(mutex_);
    return flags_;
}

void __CFSocket::setFlags(CFOptionFlags flags) {
    const std::lock_guard lock(mutex_);
    flags_ = flags;
    update();
}

void __CFSocket::enable() {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(enabled_, true))
        update();
}

void __CFSocket::schedule(bool in) {
    const std::lock_guard lock(mutex_);
    in ? ++scheduled_ : --scheduled_;
    update();
}

// Brings the main loop's set up to what is wanted. Under the lock.
void __CFSocket::update() {
    port::Epoll& epoll = port::MainLoop::shared().epoll();
    port::SourceTable& table = port::SourceTable::shared();
    const bool wanted = watched_ && scheduled_ != 0 && enabled_;
    const bool again = (flags_ & kCFSocketAutomaticallyReenableReadCallBack) != 0;
    const std::uint32_t events = again ? EPOLLIN : EPOLLIN | EPOLLONESHOT;
    if (wanted && key_ != port::kNoSource) {
        epoll.modify(watched_.get(), events, key_);
    } else if (wanted) {
        key_ = table.add(watch_);
        epoll.add(watched_.get(), events, key_);
    } else if (key_ != port::kNoSource) {
        epoll.remove(watched_.get());
        table.remove(std::exchange(key_, port::kNoSource));
    }
}

// A socket that fires once stays in the set, where it is silent until it is armed again.
bool __CFSocket::fire() {
    {
        const std::lock_guard lock(mutex_);
        if (key_ == port::kNoSource || !enabled_)
            return false;
        if ((flags_ & kCFSocketAutomaticallyReenableReadCallBack) == 0)
            enabled_ = false;
    }
    callBack_(this, kCFSocketReadCallBack, nullptr, nullptr, info_);
    return true;
}

void __CFSocket::invalidate() {
    const std::lock_guard lock(mutex_);
    if (!watched_)
        return;
    enabled_ = false;
    update();
    watched_.reset();
    if ((flags_ & kCFSocketCloseOnInvalidate) != 0)
        port::UniqueFd(native_).reset();
}

CFSocketRef CFSocketCreateWithNative(CFAllocatorRef /*allocator*/, CFSocketNativeHandle native,
                                     CFOptionFlags callBackTypes, CFSocketCallBack callBack,
                                     const CFSocketContext* context) {
    if (callBackTypes != kCFSocketReadCallBack)
        return nullptr;
    port::UniqueFd watched(port::sys::duplicate(native));
    if (!watched)
        return nullptr;
    return new __CFSocket(std::move(watched), native, callBack, context != nullptr ? context->info : nullptr);
}

CFSocketNativeHandle CFSocketGetNative(CFSocketRef socket) {
    return socket->native();
}

CFOptionFlags CFSocketGetSocketFlags(CFSocketRef socket) {
    return socket->flags();
}

void CFSocketSetSocketFlags(CFSocketRef socket, CFOptionFlags flags) {
    socket->setFlags(flags);
}

void CFSocketEnableCallBacks(CFSocketRef socket, CFOptionFlags callBackTypes) {
    if ((callBackTypes & kCFSocketReadCallBack) != 0)
        socket->enable();
}

void CFSocketInvalidate(CFSocketRef socket) {
    socket->invalidate();
}

CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef /*allocator*/, CFSocketRef socket,
                                               CFIndex /*order*/) {
    return new __CFRunLoopSource(*socket);
}
