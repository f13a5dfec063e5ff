// The outgoing side of a connection: frames and barriers in order, written as far as the socket takes them.
//
// Thread-safety: none; the connection's lock covers it.
#pragma once

#include "xpc/XPCDictionary.h"
#include "xpc/XPCFrame.h"

#include <cstddef>
#include <cstdint>
#include <dispatch/dispatch.h>
#include <sys/types.h>
#include <vector>

namespace port {

enum class XPCWriteResult {
    Drained, // nothing waits
    Blocked, // the socket takes no more now: call `flush` when it is writable
    // The peer is gone, the send queue is full because it does not read, or there is no memory for what it has not
    // read yet: close the connection.
    Failed,
};

class XPCFrameWriter {
public:
    // True when no frame and no barrier waits.
    bool isEmpty() const { return first_ == queue_.size(); }
    // Memory held by what waits.
    std::size_t waitingBytes() const { return waitingBytes_; }

    // Queues a frame of the sealed dictionary, which is retained until it is written. False, with nothing
    // queued, when more than kSendQueueBytes would wait, but an empty queue takes any one message; when all
    // messages hold too much (see XPCHold); and when memory is short.
    bool enqueue(XPCDictionary& dictionary, XPCFrameKind kind, std::uint64_t replyId);
    // Queues a barrier; on an empty queue the caller runs it instead.
    void enqueueBarrier(dispatch_block_t barrier);
    // Written at once when nothing waits, without a reference or an allocation when the socket takes it all;
    // else as `enqueue`, and Blocked.
    XPCWriteResult send(int socket, XPCDictionary& dictionary, XPCFrameKind kind, std::uint64_t replyId);
    // Writes what waits, up to kGatherFrames a call, until the socket is full. The barriers that were reached
    // are appended to `reached`, in order, whatever the result.
    XPCWriteResult flush(int socket, std::vector<dispatch_block_t>& reached);
    // Drops the frames; the barriers that waited are appended to `reached`.
    void clear(std::vector<dispatch_block_t>& reached);

private:
    struct Item {
        XPCRef<XPCDictionary> dictionary; // none: a barrier
        XPCFrameHeader header;
        std::size_t written = 0; // bytes of header and body
        dispatch_block_t barrier;

        std::size_t frameBytes() const { return sizeof header + header.bodyBytes; }
        std::size_t cost() const;
    };
    bool mayWait(const Item& item) const;
    bool append(Item item);
    ssize_t writeFront(int socket, std::size_t& wanted) const;
    void popWritten(std::size_t bytes, std::vector<dispatch_block_t>& reached);
    void popBarriers(std::vector<dispatch_block_t>& reached);
    void pop();

    std::vector<Item> queue_; // items before first_ are spent
    std::size_t first_ = 0;
    std::size_t waitingBytes_ = 0;
    XPCHold hold_; // of many that wait; their bodies are held already
};

} // namespace port
