// The socket of a named service: taken by the one process that serves the name, reached by its clients.
//
// Thread-safety: `listen` and the free functions are reentrant; an endpoint is a plain value of its owner.
#pragma once

#include <memory>
#include <port/UniqueFd.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unistd.h>

namespace port {

class XPCEndpoint {
public:
    // Takes the name: uses the listening socket that a service manager has handed over for it (LISTEN_PID,
    // LISTEN_FDS, LISTEN_FDNAMES), whoever held the name before, else binds one, mode 0600, in the runtime
    // folder; a dead owner's socket is replaced. Null with errno otherwise: EADDRINUSE when another process (or
    // another endpoint of this one) serves the name, ENOTSOCK when something that is no socket stands in its
    // place, else what the runtime folder check or the system said.
    static std::unique_ptr<XPCEndpoint> listen(std::string_view name);
    // One that another process has made and handed on, with the lock on its name (or without).
    static std::unique_ptr<XPCEndpoint> adopt(UniqueFd socket, UniqueFd lock);
    // Closes the socket, then gives the name up. The socket file stays unless `unlinkOwn` was called.
    ~XPCEndpoint() = default;
    XPCEndpoint(const XPCEndpoint&) = delete;
    XPCEndpoint& operator=(const XPCEndpoint&) = delete;

    // Listening and non-blocking; borrowed.
    int socket() const { return socket_.get(); }
    // What keeps the name; borrowed, -1 when there is none.
    int lock() const { return lock_.get(); }
    // Removes the socket file if it is still the one that `listen` made; a handed-over one stays.
    void unlinkOwn();

private:
    XPCEndpoint() = default;
    bool bind(const std::string& draft);

    UniqueFd lock_; // held for life: the name is ours
    UniqueFd socket_;
    std::string path_;
    bool bound_ = false;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

// A connected, non-blocking socket to the service, whose process is one of our user's; none, with errno,
// otherwise: ENOENT or ECONNREFUSED when nobody serves the name, EAGAIN when the service has too many
// waiting, EPERM when the socket is another user's. Does not block.
UniqueFd xpcConnect(std::string_view name);

// True when the process at the other end of a connected socket runs under our user id, which a caller who has
// asked for it hands on. `pid` gets its process id (0: in another pid namespace) and is 0 on failure.
bool xpcPeerIsOurs(int socket, pid_t& pid, uid_t ourUser = ::geteuid());

} // namespace port
