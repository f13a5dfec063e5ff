// How a connection is made and how it goes.
#include "xpc/XPCConnection.h"

#include "xpc/XPCEndpoint.h"

#include <utility>
#include <vector>

namespace port {
namespace {

constexpr pid_t kLargestPid = 99999; // of the platform
constexpr pid_t kNoForcedPid = -1;

constinit std::atomic<std::size_t> peers{0};
constinit std::atomic<pid_t> pidForNewPeers{kNoForcedPid};

} // namespace

XPCRef<XPCConnection> XPCConnection::toService(Kind kind, const char* name, dispatch_queue_t target) {
    return XPCRef<XPCConnection>(new XPCConnection(kind, name, target));
}

XPCRef<XPCConnection> XPCConnection::ofPeer(UniqueFd socket, pid_t pid) {
    return XPCRef<XPCConnection>(new XPCConnection(std::move(socket), pid));
}

void XPCConnection::forcePid(pid_t pid) {
    pidForNewPeers = pid;
}

void XPCConnection::dispose() noexcept {
    delete this;
}

std::size_t XPCConnection::peerCount() {
    return peers;
}

XPCConnection::XPCConnection(Kind kind, std::string name, dispatch_queue_t target)
    : _xpc_connection_s(target), name_(std::move(name)), kind_(kind), ownTurns_(target == nullptr) {}

XPCConnection::XPCConnection(UniqueFd socket, pid_t pid)
    : _xpc_connection_s(nullptr), forcedPid_(pidForNewPeers), socket_(std::move(socket)), pid_(pid),
      ownTurns_(true) {
    ++peers;
}

// Only a connection that was never resumed can have something waiting here: else it keeps itself.
XPCConnection::~XPCConnection() {
    SourceTable::shared().remove(key_);
    closeSocket();
    std::vector<dispatch_block_t> barriers;
    writer_.clear(barriers);
    for (dispatch_block_t& barrier : barriers)
        GlobalQueue::shared().append(Task(std::move(barrier)));
    for (XPCReplyHandler& waiting : replies_.takeAll())
        waiting.answer({}, XPCRef<XPCObject>(XPCObject::from(XPC_ERROR_CONNECTION_INVALID)));
    if (!isClient())
        --peers;
}

pid_t XPCConnection::peerPid() const {
    const std::lock_guard lock(mutex_);
    if (forcedPid_ != kNoForcedPid)
        return forcedPid_;
    pid_t pid = pid_;
    if (isClient() && socket_)
        xpcPeerIsOurs(socket_.get(), pid);
    // Larger ids are folded into the platform's range; 0, a peer of another pid namespace, stays.
    return pid > kLargestPid ? 1 + (pid - 1) % kLargestPid : pid;
}

} // namespace port
