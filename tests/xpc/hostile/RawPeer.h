// A peer that speaks to a service's socket by hand, and frames that tell the truth unless they are changed.
//
// Thread-safety: a plain value of one thread.
#pragma once

#include <port/UniqueFd.h>
#include <string>
#include <string_view>
#include <vector>

#include "xpc/XPCFrame.h"

struct RawFrame {
    port::XPCFrameHeader header;
    std::string body;

    explicit RawFrame(port::XPCFrameKind kind = port::XPCFrameKind::Message, std::uint64_t replyId = 0);
    RawFrame& Add(port::XPCTag tag, std::string_view key, std::string_view value);
    RawFrame& AddText(std::string_view key, std::string_view text);
    RawFrame& AddNumber(std::string_view key, std::int64_t value);
    std::string Bytes() const;
};

class RawPeer {
public:
    // Connects to the socket at that path; blocking.
    explicit RawPeer(const std::string& path);
    explicit RawPeer(port::UniqueFd connected) : socket(std::move(connected)) {}

    bool IsConnected() const { return static_cast<bool>(socket); }
    int Fd() const { return socket.get(); }
    // False when the other side has gone. Blocks while it does not read.
    bool Send(std::string_view bytes, const std::vector<int>& descriptors = {});
    // True when the other side closes within that time; what it sent before is thrown away.
    bool IsClosedWithin(int milliseconds);
    // The next frame; magic 0 when none comes in time.
    RawFrame Read(int milliseconds = 3000);
    void Close() { socket.reset(); }

private:
    bool ReadBytes(void* bytes, std::size_t size, long deadline);

    port::UniqueFd socket;
};

// The socket of a service in the private place.
std::string SocketPath(const std::string& place, const std::string& service);
