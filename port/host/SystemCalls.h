// The system calls through which the port reads, writes and renames, with one seam: a test may install a
// hook that makes a call fail or fall short. Calls interrupted by a signal are repeated here, so callers
// never see EINTR.
//
// Thread-safety: the calls are as safe as the kernel's; the hook is set before the threads that meet it
// start.
#pragma once

#include <cstddef>
#include <sys/socket.h>
#include <sys/types.h>

struct epoll_event;

namespace port::sys {

enum class Call { Open, Read, Write, Fsync, Rename, Send, Receive, Accept, Duplicate, Watch, Thread };

// What the hook decides for one call: carry on (error 0, limit untouched), fail with `error` (an errno
// value), or let at most `limit` bytes through.
struct Verdict {
    int error = 0;
    std::size_t limit = ~std::size_t{0};
};

using Hook = Verdict (*)(Call call);

// Null takes the hook away.
void setHook(Hook hook);

// Results as in the manual pages of the calls: -1 with errno, EINTR excepted.
int open(const char* path, int flags, mode_t mode = 0);
int openat(int folder, const char* name, int flags, mode_t mode = 0);
ssize_t read(int fd, void* buffer, std::size_t size);
ssize_t write(int fd, const void* bytes, std::size_t size);
ssize_t copyRange(int from, int to, std::size_t size); // copy_file_range; for the hook it is a write
bool reserve(int fd, std::size_t size);                // fallocate; for the hook it is a write
int fsync(int fd);
int renameat(int fromFolder, const char* from, int toFolder, const char* to);
ssize_t sendmsg(int fd, const msghdr* message, int flags);
ssize_t recvmsg(int fd, msghdr* message, int flags);
int accept4(int fd, sockaddr* address, socklen_t* length, int flags);
int duplicate(int fd);                                         // close-on-exec
int watch(int set, int operation, int fd, epoll_event* event); // epoll_ctl
// A detached thread. False with errno.
bool startThread(void* (*body)(void* argument), void* argument);

// Writes all bytes, however many calls it takes. False with errno.
bool writeAll(int fd, const void* bytes, std::size_t size);

} // namespace port::sys
