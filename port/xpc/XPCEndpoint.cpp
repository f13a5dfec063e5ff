#include "xpc/XPCEndpoint.h"

#include "host/SystemCalls.h"
#include "xpc/XPCLimits.h"
#include "xpc/XPCRuntimeFolder.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <optional>
#include <string_view>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace port {
namespace {

constexpr int kFirstHandedOver = 3;
constexpr int kMaxHandedOver = 64; // descriptors looked at

// `path` comes from xpcServicePath and fits.
sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

UniqueFd makeSocket() {
    return UniqueFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

bool connectTo(int socket, const std::string& path) {
    const sockaddr_un address = addressOf(path);
    return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

// Held as long as the name is served, and never unlinked: two processes could else lock two files of one name.
// The kernel lets it go with its last descriptor, however the process ends.
UniqueFd takeLock(const std::string& path) {
    UniqueFd lock(sys::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600));
    if (lock && ::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            errno = EADDRINUSE;
        return UniqueFd();
    }
    return lock;
}

// True when nothing stands at the path, or a socket on which nobody listens any more. A service manager's
// socket is alive though it holds no lock.
bool placeIsFree(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0)
        return errno == ENOENT;
    if (!S_ISSOCK(status.st_mode)) {
        errno = ENOTSOCK;
        return false;
    }
    const UniqueFd probe = makeSocket();
    if (!probe)
        return false;
    if (!connectTo(probe.get(), path) && errno == ECONNREFUSED)
        return true;
    errno = EADDRINUSE;
    return false;
}

// A whole decimal number in an environment variable.
std::optional<long> numberInEnvironment(const char* variable) {
    const char* const text = std::getenv(variable);
    if (text == nullptr)
        return std::nullopt;
    long number = 0;
    const char* const end = text + std::strlen(text);
    const auto result = std::from_chars(text, end, number);
    return result.ec == std::errc() && result.ptr == end ? std::optional(number) : std::nullopt;
}

// True when the service manager named the index-th descriptor after the service, or named none. Its own
// default name for a socket is that of the unit, with the suffix.
bool nameAgrees(std::string_view service, long index) {
    const char* const text = std::getenv("LISTEN_FDNAMES");
    if (text == nullptr)
        return true;
    std::string_view names(text);
    for (; index > 0; --index) {
        const std::size_t colon = names.find(':');
        if (colon == std::string_view::npos)
            return false;
        names.remove_prefix(colon + 1);
    }
    std::string_view name = names.substr(0, names.find(':'));
    constexpr std::string_view kUnitSuffix = ".socket";
    if (name.size() == service.size() + kUnitSuffix.size() && name.ends_with(kUnitSuffix))
        name.remove_suffix(kUnitSuffix.size());
    return name == service;
}

int socketOption(int socket, int option) {
    int value = -1;
    socklen_t length = sizeof value;
    return ::getsockopt(socket, SOL_SOCKET, option, &value, &length) == 0 ? value : -1;
}

bool listensAt(int socket, const std::string& path) {
    sockaddr_un address{};
    socklen_t length = sizeof address;
    return socketOption(socket, SO_DOMAIN) == AF_UNIX && socketOption(socket, SO_TYPE) == SOCK_STREAM &&
           socketOption(socket, SO_ACCEPTCONN) == 1 &&
           ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
           strnlen(address.sun_path, sizeof address.sun_path) == path.size() &&
           std::memcmp(address.sun_path, path.data(), path.size()) == 0;
}

UniqueFd handedOverSocket(std::string_view name, const std::string& path) {
    if (numberInEnvironment("LISTEN_PID") != ::getpid())
        return UniqueFd();
    const long count = std::min<long>(numberInEnvironment("LISTEN_FDS").value_or(0), kMaxHandedOver);
    for (long i = 0; i < count; ++i) {
        const int fd = kFirstHandedOver + static_cast<int>(i);
        if (!nameAgrees(name, i) || !listensAt(fd, path))
            continue;
        const int flags = ::fcntl(fd, F_GETFL);
        if (flags == -1 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == -1 ||
            ::fcntl(fd, F_SETFD, FD_CLOEXEC) == -1)
            continue;
        return UniqueFd(fd);
    }
    return UniqueFd();
}

} // namespace

std::unique_ptr<XPCEndpoint> XPCEndpoint::listen(std::string_view name) {
    const std::string folder = xpcRuntimeFolder();
    const std::string path = xpcServicePath(folder, name, ".sock");
    if (path.empty() || !xpcCheckRuntimeFolder(folder, true))
        return nullptr;
    std::unique_ptr<XPCEndpoint> endpoint(new XPCEndpoint);
    endpoint->path_ = path;
    endpoint->socket_ = handedOverSocket(name, path);
    // Before the path is looked at: who has the lock is alone in judging and replacing what stands there.
    endpoint->lock_ = takeLock(xpcServicePath(folder, name, ".lock"));
    // The service manager has put its socket at the path, so nobody reaches a holder of the lock any more: to
    // leave the name to that one would leave those who call without an answer.
    if (endpoint->socket_)
        return endpoint;
    if (!endpoint->lock_ || !endpoint->bind(xpcServicePath(folder, name, ".bind")))
        return nullptr;
    return endpoint;
}

std::unique_ptr<XPCEndpoint> XPCEndpoint::adopt(UniqueFd socket, UniqueFd lock) {
    std::unique_ptr<XPCEndpoint> endpoint(new XPCEndpoint);
    endpoint->socket_ = std::move(socket);
    endpoint->lock_ = std::move(lock);
    return endpoint;
}

// The socket gets its name when it listens already, by renaming: a client never meets one that refuses, and a
// stale one is replaced in one step.
bool XPCEndpoint::bind(const std::string& draft) {
    UniqueFd socket = makeSocket();
    if (!placeIsFree(path_) || !socket || (::unlink(draft.c_str()) != 0 && errno != ENOENT))
        return false;
    const sockaddr_un address = addressOf(draft);
    struct stat status {};
    // The mode of the socket before it is bound is that of its file.
    if (::fchmod(socket.get(), 0600) != 0 ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), kListenBacklog) != 0 || ::lstat(draft.c_str(), &status) != 0 ||
        sys::renameat(AT_FDCWD, draft.c_str(), AT_FDCWD, path_.c_str()) != 0)
        return false;
    socket_ = std::move(socket);
    bound_ = true;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    return true;
}

// By device and inode: somebody else's socket may have replaced ours meanwhile. It may run twice, at exit and
// in a destructor.
void XPCEndpoint::unlinkOwn() {
    struct stat status {};
    if (bound_ && ::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_)
        ::unlink(path_.c_str());
    bound_ = false;
}

// The folder is checked, and the peer asked: neither a foreign folder nor a foreign service gets what is sent.
UniqueFd xpcConnect(std::string_view name) {
    const std::string folder = xpcRuntimeFolder();
    const std::string path = xpcServicePath(folder, name, ".sock");
    const uid_t ourUser = ::geteuid();
    if (path.empty() || !xpcCheckRuntimeFolder(folder, false, ourUser))
        return UniqueFd();
    UniqueFd socket = makeSocket();
    if (!socket || !connectTo(socket.get(), path))
        return UniqueFd();
    pid_t pid = 0;
    if (!xpcPeerIsOurs(socket.get(), pid, ourUser)) {
        errno = EPERM;
        return UniqueFd();
    }
    return socket;
}

bool xpcPeerIsOurs(int socket, pid_t& pid, uid_t ourUser) {
    ucred peer{};
    socklen_t length = sizeof peer;
    pid = 0;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.uid != ourUser)
        return false;
    pid = peer.pid;
    return true;
}

} // namespace port
