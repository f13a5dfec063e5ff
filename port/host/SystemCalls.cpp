#include "host/SystemCalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace port::sys {
namespace {

constinit std::atomic<Hook> hook{nullptr};

// True when the hook wants the call to fail, errno set; else `size` is cut to what it lets through.
bool refused(Call call, std::size_t& size) {
    const Hook current = hook.load(std::memory_order_acquire);
    if (current == nullptr) [[likely]]
        return false;
    const Verdict verdict = current(call);
    size = std::min(size, verdict.limit);
    errno = verdict.error;
    return verdict.error != 0;
}

bool refused(Call call) {
    std::size_t whole = 0;
    return refused(call, whole);
}

template <typename Function>
auto repeat(Function function) {
    auto result = function();
    while (result == -1 && errno == EINTR)
        result = function();
    return result;
}

} // namespace

void setHook(Hook replacement) {
    hook.store(replacement, std::memory_order_release);
}

int open(const char* path, int flags, mode_t mode) {
    return openat(AT_FDCWD, path, flags, mode);
}

int openat(int folder, const char* name, int flags, mode_t mode) {
    if (refused(Call::Open))
        return -1;
    return repeat([&] { return ::openat(folder, name, flags | O_CLOEXEC, mode); });
}

ssize_t read(int fd, void* buffer, std::size_t size) {
    if (refused(Call::Read, size))
        return -1;
    return repeat([&] { return ::read(fd, buffer, size); });
}

ssize_t write(int fd, const void* bytes, std::size_t size) {
    if (refused(Call::Write, size))
        return -1;
    return repeat([&] { return ::write(fd, bytes, size); });
}

ssize_t copyRange(int from, int to, std::size_t size) {
    if (refused(Call::Write, size))
        return -1;
    return repeat([&] { return ::copy_file_range(from, nullptr, to, nullptr, size, 0); });
}

bool reserve(int fd, std::size_t size) {
    if (refused(Call::Write))
        return false;
    const off_t length = static_cast<off_t>(size);
    return size == 0 || repeat([&] { return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, length); }) == 0 ||
           (errno != ENOSPC && errno != EDQUOT && errno != EFBIG && errno != EIO);
}

int fsync(int fd) {
    if (refused(Call::Fsync))
        return -1;
    return repeat([&] { return ::fsync(fd); });
}

int renameat(int fromFolder, const char* from, int toFolder, const char* to) {
    if (refused(Call::Rename))
        return -1;
    return ::renameat(fromFolder, from, toFolder, to);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    std::size_t limit = ~std::size_t{0};
    if (refused(Call::Send, limit))
        return -1;
    if (limit == ~std::size_t{0}) [[likely]]
        return repeat([&] { return ::sendmsg(fd, message, flags | MSG_NOSIGNAL); });
    // A short send: only a piece of the first part goes out.
    iovec part = message->msg_iov[0];
    part.iov_len = std::min(part.iov_len, std::max<std::size_t>(limit, 1));
    msghdr piece = *message;
    piece.msg_iov = &part;
    piece.msg_iovlen = 1;
    return repeat([&] { return ::sendmsg(fd, &piece, flags | MSG_NOSIGNAL); });
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
    std::size_t limit = ~std::size_t{0};
    if (refused(Call::Receive, limit))
        return -1;
    if (limit == ~std::size_t{0}) [[likely]]
        return repeat([&] { return ::recvmsg(fd, message, flags | MSG_CMSG_CLOEXEC); });
    const std::size_t whole = message->msg_iov[0].iov_len;
    const std::size_t parts = message->msg_iovlen;
    message->msg_iov[0].iov_len = std::min(whole, std::max<std::size_t>(limit, 1));
    message->msg_iovlen = 1;
    const ssize_t got = repeat([&] { return ::recvmsg(fd, message, flags | MSG_CMSG_CLOEXEC); });
    message->msg_iov[0].iov_len = whole;
    message->msg_iovlen = parts;
    message->msg_flags |= MSG_TRUNC; // a read cut short here does not mean that nothing is left
    return got;
}

int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
    if (refused(Call::Accept))
        return -1;
    return repeat([&] { return ::accept4(fd, address, length, flags | SOCK_CLOEXEC); });
}

int duplicate(int fd) {
    if (refused(Call::Duplicate))
        return -1;
    return ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
}

int watch(int set, int operation, int fd, epoll_event* event) {
    return refused(Call::Watch) ? -1 : ::epoll_ctl(set, operation, fd, event);
}

bool startThread(void* (*body)(void* argument), void* argument) {
    if (refused(Call::Thread))
        return false;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread{};
    const int error = pthread_create(&thread, &attributes, body, argument);
    pthread_attr_destroy(&attributes);
    if (error != 0)
        errno = error;
    return error == 0;
}

bool writeAll(int fd, const void* bytes, std::size_t size) {
    const char* next = static_cast<const char*>(bytes);
    while (size != 0) {
        const ssize_t written = write(fd, next, size);
        if (written <= 0)
            return false;
        next += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

} // namespace port::sys
