// A peer that speaks to a service's socket by hand, and honest frames for it to spoil.
//
// Thread-safety: a plain value of one thread.
#pragma once

#include <port/UniqueFd.h>
#include <string>
#include <vector>

#include "xpc/LXPCData.h"
#include "xpc/XPCFrame.h"

// Header and body as they travel. With an id a message asks for a reply.
std::string Frame(const std::vector<LXPCData>& items, std::uint64_t replyId = 0, bool isReply = false);

class RawPeer {
public:
    explicit RawPeer(port::UniqueFd connected) : socket(std::move(connected)) {}
    // Connects to the socket at that path; `apart` as a process of its own, which then goes.
    explicit RawPeer(const std::string& path, bool apart = false);

    // False when the other side has gone. Blocks while it does not read. Brings standard input along that
    // many times, with the first byte.
    bool Send(const std::string& bytes, std::size_t descriptors = 0);
    // The reply id of the next frame; 0 when none comes in time, `Closed` when the other side has gone.
    std::uint64_t ReadReplyId(int milliseconds = 3000);
    static constexpr std::uint64_t Closed = ~std::uint64_t{0};

    port::UniqueFd socket;
};
