#include "dispatch/Closer.h"

#include "host/DetachedThread.h"
#include "host/PassedDescriptors.h"
#include "host/SystemCalls.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <utility>

namespace port {
namespace {

bool isEmpty(int socket) {
    int unread = 0;
    return ::ioctl(socket, FIONREAD, &unread) == 0 && unread == 0;
}

void dropNow(int descriptor) {
    constexpr linger kNone{};
    ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &kNone, sizeof kNone);
    ::close(descriptor);
}

// What the kernel would close by itself it would wait for, one after another.
void dropUnread(int socket) {
    ssize_t got = 0;
    do {
        char bytes[4096];
        alignas(cmsghdr) char control[CMSG_SPACE(kMostPassed * sizeof(int))];
        iovec place{bytes, sizeof bytes};
        msghdr message{};
        message.msg_iov = &place;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        got = sys::recvmsg(socket, &message, MSG_DONTWAIT);
        if (got > 0)
            forEachPassed(message, dropNow);
    } while (got > 0);
}

} // namespace

Closer& Closer::shared() {
    static Closer& closer = *new Closer;
    return closer;
}

void Closer::close(UniqueFd descriptor) {
    take(std::move(descriptor), Manner::Close);
}

void Closer::drop(UniqueFd descriptor) {
    take(std::move(descriptor), Manner::Drop);
}

// Most connections have nothing unread: the caller closes those. The other side sees the end now, whoever closes.
void Closer::end(UniqueFd socket, bool quiet) {
    if (quiet && isEmpty(socket.get()))
        return;
    ::shutdown(socket.get(), SHUT_RDWR);
    if (!isEmpty(socket.get()))
        take(std::move(socket), Manner::End);
}

// Under the lock no thread can end between the count and the start of one. What nobody takes over is closed by
// the caller, when the lock is gone.
void Closer::take(UniqueFd descriptor, Manner manner) {
    const std::lock_guard lock(mutex_);
    if (!descriptor || count_ == waiting_.size())
        return;
    waiting_[count_++] = {descriptor.get(), manner};
    if (threads_ < kMostThreads && startDetachedThread(threadMain, this))
        ++threads_;
    if (threads_ != 0)
        static_cast<void>(descriptor.release());
    else
        --count_;
}

void* Closer::threadMain(void* closer) {
    static_cast<Closer*>(closer)->work();
    return nullptr;
}

// On a thread of the closer, which may be stuck in one close for ever; so the lock is never held in it. The
// look that finds nothing and the end of the thread are one step under the lock.
void Closer::work() {
    std::unique_lock lock(mutex_);
    for (; count_ != 0; lock.lock()) {
        const Item item = waiting_[--count_];
        lock.unlock();
        if (item.manner == Manner::End)
            dropUnread(item.descriptor);
        if (item.manner == Manner::Close)
            ::close(item.descriptor);
        else
            dropNow(item.descriptor);
    }
    --threads_;
}

} // namespace port
