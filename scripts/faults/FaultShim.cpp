// Preloaded into a program: makes the N-th call of a function of the C library fail, or fall short, as FaultPlan
// says. Without a plan every call goes through.
#undef _FORTIFY_SOURCE // what is defined here the headers would make checked calls of
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "FaultPlan.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

FaultPlan* pPlan = nullptr; // none before the program's own code runs

// Whoever is first: the linker loads the shim before anything that calls it.
[[gnu::constructor]] void ReadPlan() {
    const char* szPath = getenv(FaultPlan::szVariable);
    if (szPath == nullptr)
        return;
    const int nFile = static_cast<int>(syscall(SYS_openat, AT_FDCWD, szPath, O_RDWR | O_CLOEXEC));
    if (nFile < 0)
        return;
    auto* pMapped = reinterpret_cast<FaultPlan*>(
        syscall(SYS_mmap, nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, nFile, 0));
    close(nFile);
    if (strcmp(pMapped->szProgram, program_invocation_short_name) == 0)
        pPlan = pMapped;
}

bool IsMeant(const char* szCall, bool bMakesDescriptor) {
    return pPlan != nullptr && (strcmp(pPlan->szCall, szCall) == 0 ||
                                (bMakesDescriptor && strcmp(pPlan->szCall, FaultPlan::szDescriptors) == 0));
}

// Whether this call is the one; errno is set then, but for one that only falls short.
bool Fails(const char* szCall, bool bMakesDescriptor = false) {
    if (!IsMeant(szCall, bMakesDescriptor))
        return false;
    const std::uint64_t dwCall = ++pPlan->dwCalls;
    if (pPlan->bForGood ? dwCall < pPlan->dwAt : dwCall != pPlan->dwAt)
        return false;
    ++pPlan->dwFailed;
    errno = std::max(pPlan->nError, 0);
    return true;
}

bool FallsShort() {
    return pPlan->nError == FaultPlan::nShort;
}

template <typename Function>
Function* Real(const char* szName) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, szName));
}

// The C library's function of that name.
#define REAL(name)                                                                                           \
    [] {                                                                                                     \
        static decltype(&name) const pReal = Real<decltype(name)>(#name);                                    \
        return pReal;                                                                                        \
    }()

// Half of the bytes, at least one.
std::size_t Half(std::size_t dwSize) {
    return std::max<std::size_t>(dwSize / 2, std::min<std::size_t>(dwSize, 1));
}

// The first part of a message alone, and half of that.
ssize_t SendHalf(int nSocket, msghdr message, int nFlags) {
    iovec part = message.msg_iov[0];
    part.iov_len = Half(part.iov_len);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    return REAL(sendmsg)(nSocket, &message, nFlags);
}

// What stays in the socket is told, as the kernel would not: a read that is cut here is no sign that it is empty.
ssize_t ReceiveHalf(int nSocket, msghdr& message, int nFlags) {
    iovec part = message.msg_iov[0];
    part.iov_len = Half(part.iov_len);
    msghdr piece = message;
    piece.msg_iov = &part;
    piece.msg_iovlen = 1;
    const ssize_t nResult = REAL(recvmsg)(nSocket, &piece, nFlags);
    message.msg_controllen = piece.msg_controllen;
    message.msg_flags = piece.msg_flags | MSG_TRUNC;
    return nResult;
}

mode_t ModeOf(int nFlags, va_list arguments) {
    return (nFlags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

int Open(int nFolder, const char* szPath, int nFlags, mode_t nMode) {
    if (Fails("open", true))
        return -1;
    return static_cast<int>(syscall(SYS_openat, nFolder, szPath, nFlags, nMode));
}

} // namespace

#define VISIBLE [[gnu::visibility("default")]]

extern "C" {

VISIBLE void* malloc(std::size_t size) {
    return Fails("malloc") ? nullptr : __libc_malloc(size);
}

VISIBLE void* calloc(std::size_t count, std::size_t size) {
    return Fails("malloc") ? nullptr : __libc_calloc(count, size);
}

VISIBLE void* realloc(void* block, std::size_t size) {
    return Fails("malloc") ? nullptr : __libc_realloc(block, size);
}

#define OPEN(name)                                                                                           \
    int name(const char* path, int flags, ...);                                                              \
    VISIBLE int name(const char* path, int flags, ...) {                                                     \
        va_list arguments;                                                                                   \
        va_start(arguments, flags);                                                                          \
        const mode_t mode = ModeOf(flags, arguments);                                                        \
        va_end(arguments);                                                                                   \
        return Open(AT_FDCWD, path, flags, mode);                                                            \
    }
#define OPENAT(name)                                                                                         \
    int name(int folder, const char* path, int flags, ...);                                                  \
    VISIBLE int name(int folder, const char* path, int flags, ...) {                                         \
        va_list arguments;                                                                                   \
        va_start(arguments, flags);                                                                          \
        const mode_t mode = ModeOf(flags, arguments);                                                        \
        va_end(arguments);                                                                                   \
        return Open(folder, path, flags, mode);                                                              \
    }
OPEN(open)
OPEN(open64)
OPEN(__open_2)
OPEN(__open64_2)
OPENAT(openat)
OPENAT(openat64)
OPENAT(__openat_2)
OPENAT(__openat64_2)

VISIBLE ssize_t read(int fd, void* buffer, std::size_t size) {
    const bool fails = Fails("read");
    return fails && !FallsShort() ? -1 : syscall(SYS_read, fd, buffer, fails ? Half(size) : size);
}

ssize_t __read_chk(int fd, void* buffer, std::size_t size, std::size_t room);
VISIBLE ssize_t __read_chk(int fd, void* buffer, std::size_t size, std::size_t) {
    return read(fd, buffer, size);
}

VISIBLE ssize_t write(int fd, const void* bytes, std::size_t size) {
    const bool fails = Fails("write");
    return fails && !FallsShort() ? -1 : syscall(SYS_write, fd, bytes, fails ? Half(size) : size);
}

VISIBLE ssize_t copy_file_range(int from, off64_t* fromAt, int to, off64_t* toAt, std::size_t size,
                                unsigned flags) {
    const bool fails = Fails("write");
    return fails && !FallsShort()
               ? -1
               : syscall(SYS_copy_file_range, from, fromAt, to, toAt, fails ? Half(size) : size, flags);
}

VISIBLE int fsync(int fd) {
    return Fails("fsync") ? -1 : REAL(fsync)(fd);
}

VISIBLE int rename(const char* from, const char* to) noexcept {
    return Fails("rename") ? -1 : REAL(rename)(from, to);
}

VISIBLE int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
    return Fails("rename") ? -1 : REAL(renameat)(fromFolder, from, toFolder, to);
}

VISIBLE int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                      unsigned flags) noexcept {
    return Fails("rename") ? -1 : REAL(renameat2)(fromFolder, from, toFolder, to, flags);
}

VISIBLE void* mmap(void* place, std::size_t size, int protection, int flags, int fd, off_t offset) noexcept {
    return Fails("mmap") ? MAP_FAILED : REAL(mmap)(place, size, protection, flags, fd, offset);
}

VISIBLE void* mmap64(void* place, std::size_t size, int protection, int flags, int fd,
                     off64_t offset) noexcept {
    return mmap(place, size, protection, flags, fd, offset);
}

VISIBLE int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                           void* argument) noexcept {
    return Fails("pthread_create") ? errno : REAL(pthread_create)(thread, attributes, body, argument);
}

VISIBLE int epoll_ctl(int set, int operation, int fd, epoll_event* event) noexcept {
    return Fails("epoll_ctl") ? -1 : REAL(epoll_ctl)(set, operation, fd, event);
}

VISIBLE int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
    return Fails("accept4", true) ? -1 : REAL(accept4)(socket, address, length, flags);
}

VISIBLE ssize_t sendmsg(int socket, const msghdr* message, int flags) {
    if (!Fails("sendmsg"))
        return REAL(sendmsg)(socket, message, flags);
    return FallsShort() ? SendHalf(socket, *message, flags) : -1;
}

VISIBLE ssize_t recvmsg(int socket, msghdr* message, int flags) {
    if (!Fails("recvmsg"))
        return REAL(recvmsg)(socket, message, flags);
    return FallsShort() ? ReceiveHalf(socket, *message, flags) : -1;
}

VISIBLE int socket(int domain, int type, int protocol) noexcept {
    return Fails("socket", true) ? -1 : REAL(socket)(domain, type, protocol);
}

VISIBLE int epoll_create1(int flags) noexcept {
    return Fails("epoll_create1", true) ? -1 : REAL(epoll_create1)(flags);
}

VISIBLE int eventfd(unsigned count, int flags) noexcept {
    return Fails("eventfd", true) ? -1 : REAL(eventfd)(count, flags);
}

VISIBLE int pipe2(int ends[2], int flags) noexcept {
    return Fails("pipe2", true) ? -1 : REAL(pipe2)(ends, flags);
}

VISIBLE int timerfd_create(clockid_t clock, int flags) noexcept {
    return Fails("timerfd_create", true) ? -1 : REAL(timerfd_create)(clock, flags);
}

VISIBLE int memfd_create(const char* name, unsigned flags) noexcept {
    return Fails("memfd_create", true) ? -1 : REAL(memfd_create)(name, flags);
}
}
