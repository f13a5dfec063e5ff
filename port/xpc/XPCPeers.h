// The connections of peers that this process serves: how many there may be, and how many one process may have of
// them, so that no process can keep the others out.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include "xpc/XPCLimits.h"

#include <array>
#include <cstddef>
#include <mutex>
#include <sys/types.h>

namespace port {

class XPCPeers {
public:
    static XPCPeers& shared();

    // One more of that process (0: of any other pid namespace). False when all are taken, or its share; the first
    // time that a share is, a line on standard error says whose.
    bool enter(pid_t process);
    void leave(pid_t process);

    std::size_t count() const;
    // Those that have left counted too.
    std::size_t ever() const;

private:
    // Free when it has no connections.
    struct Process {
        pid_t id = 0;
        std::size_t connections = 0;
    };

    XPCPeers() = default;
    Process& find(pid_t process);

    mutable std::mutex mutex_;
    std::array<Process, kMaxConnections> processes_;
    std::size_t count_ = 0;
    std::size_t ever_ = 0;
    bool told_ = false;
};

} // namespace port
