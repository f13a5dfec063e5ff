// The body of a watched descriptor.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include <mutex>
#include <port/UniqueFd.h>
#include <utility>

#include <CoreFoundation/CFSocket.h>

#include "corefoundation/CFObject.h"
#include "dispatch/Source.h"

struct __CFSocket final : port::CFObject {
    __CFSocket(port::UniqueFd watched, int native, CFSocketCallBack callBack, void* info)
        : CFObject(port::CFKind::Socket), native_(native), callBack_(callBack), info_(info),
          watched_(std::move(watched)) {}
    ~__CFSocket() override { invalidate(); }

    int native() const { return native_; }
    CFOptionFlags flags() const;
    void setFlags(CFOptionFlags flags);
    void enable();
    // Tells that a run-loop source of this socket was put in or taken out.
    void schedule(bool in);
    void invalidate();

private:
    // The main loop's view of a socket. It is in the main loop's table only while a run-loop source holds
    // a reference to the socket.
    class Watch final : public port::Source {
    public:
        explicit Watch(__CFSocket& socket) : socket_(socket) {}
        bool pin() noexcept override {
            socket_.retain();
            return true;
        }
        void unpin() noexcept override { socket_.release(); }
        port::SourceResult ready(std::uint32_t /*events*/) override {
            return socket_.fire() ? port::SourceResult::UserCalled : port::SourceResult::Done;
        }

    private:
        __CFSocket& socket_;
    };

    bool fire();
    void update();

    const int native_;
    const CFSocketCallBack callBack_;
    void* const info_;
    Watch watch_{*this};
    mutable std::mutex mutex_;
    // A descriptor of its own: one descriptor cannot be watched twice.
    port::UniqueFd watched_; // none: invalid
    CFOptionFlags flags_ = kCFSocketAutomaticallyReenableReadCallBack | kCFSocketCloseOnInvalidate;
    unsigned scheduled_ = 0;
    bool enabled_ = true;
    port::SourceKey key_ = port::kNoSource; // while it is in the main loop's set
};
