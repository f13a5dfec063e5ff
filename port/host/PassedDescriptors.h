// The descriptors that another process has sent with a message.
//
// Thread-safety: reentrant.
#pragma once

#include <cstddef>
#include <cstring>
#include <sys/socket.h>

namespace port {

// So many the kernel lets travel together.
constexpr std::size_t kMostPassed = 253;

// Calls `take` with each descriptor of a message that `recvmsg` has filled in; who takes it owns it.
template <typename Take>
void forEachPassed(msghdr& message, Take take) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS)
            continue;
        const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(part) + i * sizeof descriptor, sizeof descriptor);
            take(descriptor);
        }
    }
}

} // namespace port
