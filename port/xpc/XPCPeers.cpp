#include "xpc/XPCPeers.h"

#include <cstdio>
#include <unistd.h>
#include <utility>

namespace port {

XPCPeers& XPCPeers::shared() {
    static XPCPeers& peers = *new XPCPeers;
    return peers;
}

// The line is written without the lock: who reads it may be slow, and peers that leave need the lock.
bool XPCPeers::enter(pid_t process) {
    {
        const std::lock_guard lock(mutex_);
        if (count_ == kMaxConnections)
            return false;
        Process& own = find(process);
        if (own.connections != kMaxProcessConnections) {
            own.id = process;
            ++own.connections;
            ++count_;
            ++ever_;
            return true;
        }
        if (std::exchange(told_, true))
            return false;
    }
    ::dprintf(STDERR_FILENO, "xpc: process %d has %zu connections, further ones are closed\n",
              static_cast<int>(process), kMaxProcessConnections);
    return false;
}

void XPCPeers::leave(pid_t process) {
    const std::lock_guard lock(mutex_);
    --find(process).connections;
    --count_;
}

std::size_t XPCPeers::count() const {
    const std::lock_guard lock(mutex_);
    return count_;
}

std::size_t XPCPeers::ever() const {
    const std::lock_guard lock(mutex_);
    return ever_;
}

// Its own place, else a free one: there is one while a connection more may come.
XPCPeers::Process& XPCPeers::find(pid_t process) {
    Process* place = nullptr;
    for (Process& candidate : processes_) {
        if (candidate.connections == 0)
            place = &candidate;
        else if (candidate.id == process)
            return candidate;
    }
    return *place;
}

} // namespace port
