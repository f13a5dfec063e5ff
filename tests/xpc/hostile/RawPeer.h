// A peer that speaks to a service's socket by hand, and frames that tell the truth until they are changed.
//
// Thread-safety: a plain value of one thread.
#pragma once

#include <port/UniqueFd.h>
#include <string>
#include <vector>

#include "xpc/RecordingClient.h"
#include "xpc/XPCFrame.h"

struct RawFrame {
    // A message that asks for no reply; with an id, one that does.
    explicit RawFrame(const std::vector<LXPCData>& items = {}, std::uint64_t replyId = 0);

    port::XPCFrameHeader header;
    std::string body;
    std::string Bytes() const;
};

class RawPeer {
public:
    // Connects to the service in that private place.
    RawPeer(const std::string& place, const char* service);
    explicit RawPeer(port::UniqueFd connected) : socket(std::move(connected)) {}

    // False when the other side has gone. Blocks while it does not read.
    bool Send(const std::string& bytes, const std::vector<int>& descriptors = {});
    // True when the other side closes within that time; what it sent before is thrown away.
    bool IsClosedWithin(int milliseconds);
    // The reply id of the next frame; 0 when none comes in time.
    std::uint64_t ReadReplyId(int milliseconds = 3000);
    void Close() { socket.reset(); }

private:
    port::UniqueFd socket;
};

// The socket of a service in a private place.
std::string SocketPath(const std::string& place, const std::string& service);
