// What the connection tests share: connections that record what happens to them, and waiting with the main
// queue served.
#pragma once

#include "xpc/ChildProcess.h"
#include "xpc/XPCDictionary.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <port/seams.h>

constexpr const char* kService = "test.service";

using Lines = std::vector<std::string>;
using Message = port::XPCRef<port::XPCDictionary>;

// True when the condition came true; the main queue is served meanwhile.
inline bool serveUntil(const std::function<bool()>& condition, int milliseconds = 20000) {
    const long end = NowMilliseconds() + milliseconds;
    while (!condition() && NowMilliseconds() < end)
        port_main_queue_drain(5);
    return condition();
}

inline void serveFor(int milliseconds) {
    serveUntil([] { return false; }, milliseconds);
}

inline Message makeMessage(const std::string& text) {
    Message message = port::XPCDictionary::create();
    xpc_dictionary_set_string(message.get(), "text", text.c_str());
    return message;
}

// Lines that handlers add from any thread.
class Log {
public:
    // "invalid", "interrupted", "imminent", or the text of a message.
    void add(xpc_object_t event) {
        const char* const text = xpc_dictionary_get_string(event, "text");
        add(event == XPC_ERROR_CONNECTION_INVALID       ? "invalid"
            : event == XPC_ERROR_CONNECTION_INTERRUPTED ? "interrupted"
            : event == XPC_ERROR_TERMINATION_IMMINENT   ? "imminent"
            : text == nullptr                           ? "no text"
                                                        : text);
    }
    void add(const std::string& line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(line);
    }
    Lines lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }
    // The lines once there are that many, or in the end.
    Lines wait(std::size_t count) const {
        serveUntil([&] { return lines().size() >= count; });
        return lines();
    }
    // True once the connection's last event has come.
    bool waitForEnd() const {
        return serveUntil([&] { return !lines().empty() && lines().back() == "invalid"; });
    }

private:
    mutable std::mutex mutex_;
    Lines lines_;
};

// A connection with its events in a log; cancelled at the end, when every handler must have been called.
class Peer {
public:
    explicit Peer(xpc_connection_t connection) : connection_(connection) {
        xpc_connection_set_event_handler(connection_, [this](xpc_object_t event) {
            EXPECT_EQ(xpc_dictionary_get_remote_connection(event), connection_);
            log.add(event);
            if (onEvent)
                onEvent(event);
        });
    }
    explicit Peer(const char* service) : Peer(xpc_connection_create_mach_service(service, nullptr, 0)) {
        resume();
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() {
        xpc_connection_cancel(connection_);
        EXPECT_TRUE(log.waitForEnd());
        EXPECT_EQ(replies.wait(asked_).size(), asked_);
        xpc_release(connection_);
    }

    xpc_connection_t get() const { return connection_; }
    void resume() { xpc_connection_resume(connection_); }
    void send(const std::string& text) { xpc_connection_send_message(connection_, makeMessage(text).get()); }
    // The answer goes to `replies`.
    void ask(const std::string& text) {
        ++asked_;
        xpc_connection_send_message_with_reply(connection_, makeMessage(text).get(), nullptr,
                                               [this](xpc_object_t reply) { replies.add(reply); });
    }

    Log log;
    Log replies;
    std::function<void(xpc_object_t)> onEvent;

private:
    xpc_connection_t connection_;
    std::atomic<std::size_t> asked_{0};
};
