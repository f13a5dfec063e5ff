// The reading side of a connection.
#include "dispatch/MainLoop.h"
#include "xpc/XPCConnection.h"

#include <algorithm>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <utility>

namespace port {
namespace {

using namespace std::chrono_literals;

constexpr unsigned kReadsPerTurn = 4; // then other connections have their turn
constexpr auto kFrameRecheck = 100ms; // of a late frame whose rest may have come but was not read yet

} // namespace

bool XPCConnection::ready(std::uint32_t events) {
    if ((events & EPOLLOUT) != 0) {
        const std::lock_guard lock(mutex_);
        if (state_ == State::Open && outputBlocked_)
            flush();
    }
    if ((events & ~std::uint32_t{EPOLLOUT}) != 0)
        readInput((events & (EPOLLHUP | EPOLLRDHUP | EPOLLERR)) != 0);
    return false;
}

void XPCConnection::readInput(bool hungUp) {
    if (beginReading(hungUp))
        readOn();
}

// True when the calling thread is now the one that reads.
bool XPCConnection::beginReading(bool hungUp) {
    const std::lock_guard lock(mutex_);
    if (!socket_ || state_ == State::Over)
        return false;
    if (reading_ || hungUp)
        moreToRead_ = true;
    if (reading_)
        return false;
    readingHeld_ = mustNotRead();
    reading_ = !readingHeld_;
    return reading_;
}

void XPCConnection::readOn() {
    XPCScratch& scratch = XPCScratch::ofThisThread();
    XPCReadResult result{};
    reads_ = 0;
    do {
        frames_ = 0;
        result = reader_.readFrom(socket_.get(), scratch, *this);
        if (result == XPCReadResult::Closed || result == XPCReadResult::Refused)
            return lost();
    } while (!endReading(result));
}

// True when this thread need not read on: nothing is left, or somebody else will.
bool XPCConnection::endReading(XPCReadResult result) {
    const std::lock_guard lock(mutex_);
    const bool emptied = result != XPCReadResult::Read && !std::exchange(moreToRead_, false);
    noteFrame(emptied);
    if (state_ == State::Over) {
        reading_ = false;
        closeSocket();
        return true;
    }
    if (emptied) {
        reading_ = false;
        return true;
    }
    if (mustNotRead()) {
        reading_ = false;
        readingHeld_ = true;
        moreToRead_ = true;
        return true;
    }
    if (++reads_ < kReadsPerTurn)
        return false;
    retain();
    WorkerPool::shared().submit(inputTurn_);
    return true;
}

// With the queue suspended, or full of what was read before, the peer's data stays in the socket.
bool XPCConnection::mustNotRead() const {
    return queue().isHeldBack(kFramesPerTurn);
}

// Takes up reading where `mustNotRead` stopped it.
void XPCConnection::continueInput() {
    if (!readingHeld_)
        return;
    {
        const std::lock_guard lock(mutex_);
        if (!readingHeld_ || reading_ || !socket_ || mustNotRead())
            return;
        readingHeld_ = false;
        reading_ = true;
    }
    retain();
    WorkerPool::shared().submit(inputTurn_);
}

void XPCConnection::queueRanEmpty() {
    continueInput();
}

void XPCConnection::frameReceived(XPCRef<XPCDictionary> frame) {
    ++frames_;
    if (frame->kind() != XPCFrameKind::Reply) {
        queue().append(Task([this, message = std::move(frame)] { deliverMessage(*message); }));
        return;
    }
    XPCReplyHandler waiting;
    {
        const std::lock_guard lock(mutex_);
        waiting = replies_.take(frame->replyId());
        keepWhileBusy();
    }
    if (waiting)
        waiting.answer(XPCRef<XPCObject>::retained(this), XPCRef<XPCObject>(frame.leak()));
}

void XPCConnection::deliverMessage(XPCDictionary& message) {
    message.setRemoteConnection(this);
    deliver(&message);
}

// A frame that has begun must be complete within its time, however slowly its bytes drip. The time runs from
// when the socket was first found empty inside of it: before, it was not the peer who was slow.
void XPCConnection::noteFrame(bool emptied) {
    if (frames_ != 0 || !reader_.isInsideFrame())
        frameTimed_ = false;
    if (!emptied || frameTimed_ || !reader_.isInsideFrame())
        return;
    frameTimed_ = true;
    frameBegan_ = WorkerPool::Clock::now();
    if (!std::exchange(deadlineSet_, true))
        callAt(frameBegan_ + kFrameDeadline);
}

void XPCConnection::expired() {
    Leftovers left;
    {
        const std::lock_guard lock(mutex_);
        if (state_ == State::Connecting) {
            connect(left);
        } else if (std::exchange(deadlineSet_, false) && state_ == State::Open && frameTimed_) {
            const auto now = WorkerPool::Clock::now();
            if (!reading_ && !readingHeld_ && now >= frameBegan_ + kFrameDeadline) {
                ::shutdown(socket_.get(), SHUT_RDWR);
            } else {
                deadlineSet_ = true;
                callAt(std::max(now + kFrameRecheck, frameBegan_ + kFrameDeadline));
            }
        }
    }
    settle(std::move(left));
}

} // namespace port
