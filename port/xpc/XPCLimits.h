// Every limit that a peer, a service name or a caller of XPC meets, side by side. What is past a limit is
// refused before it costs memory: a setter poisons its dictionary, a received frame ends its connection.
//
// Thread-safety: constants.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace port {

// One message.
constexpr std::size_t kMaxFrameBytes = std::size_t{1} << 20;    // header and body, what the socket carries
constexpr std::size_t kMaxMessageBytes = std::size_t{64} << 20; // the frame and its attached values
constexpr std::size_t kMaxInlineValueBytes = std::size_t{256} << 10; // above: a sealed memory file
constexpr std::size_t kMaxKeys = 1024;
constexpr std::size_t kMaxKeyBytes = 1023;  // terminator not counted
constexpr std::size_t kMaxDescriptors = 16; // passed descriptors and attached values together

// One connection.
constexpr std::chrono::milliseconds kFrameDeadline{5000};       // from the first byte of a frame to its last
constexpr std::size_t kSendQueueBytes = std::size_t{64} << 20;  // waiting for a peer that does not read
constexpr std::size_t kUnreadBytes = std::size_t{256} << 10;    // the same: then the peer is not read either
constexpr std::size_t kGatherFrames = 64;                       // frames written by one call
constexpr std::size_t kWriteBytes = std::size_t{32} << 10;      // about as much is written by one call
constexpr std::size_t kReceiveBytes = std::size_t{16} << 10;    // read by one call beside large frames
constexpr std::size_t kLargeFrameBytes = std::size_t{16} << 10; // a body that is worth memory of its own
constexpr std::size_t kFramesPerTurn = 64; // handled before other connections have their turn

// One process.
constexpr std::size_t kMaxConnections = 256;                     // of peers; further ones are closed at once
constexpr std::size_t kMaxProcessConnections = 32;               // of one peer process among them
constexpr std::size_t kMaxHeldBytes = std::size_t{256} << 20;    // by all messages, see XPCHold
constexpr std::size_t kSmallMessageBytes = std::size_t{4} << 10; // goes on when that is reached
constexpr int kListenBacklog = 4096;

} // namespace port
