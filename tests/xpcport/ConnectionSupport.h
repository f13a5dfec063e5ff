// What the connection tests share: a private runtime folder, connections that record what happens to them,
// and waiting with the main queue served.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <port/seams.h>
#include <string>
#include <unistd.h>
#include <vector>
#include <xpc/xpc.h>

using namespace std::chrono_literals;

constexpr const char* kService = "test.service";

// True when the condition came true; the main queue is served meanwhile.
inline bool serveUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 20s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition() && std::chrono::steady_clock::now() < end)
        port_main_queue_drain(5);
    return condition();
}

inline void serveFor(std::chrono::milliseconds time) {
    serveUntil([] { return false; }, time);
}

// A message with a text under "text", and a command under "command" when one is given.
inline xpc_object_t makeMessage(const std::string& text, const char* command = nullptr) {
    const xpc_object_t message = xpc_dictionary_create(nullptr, nullptr, 0);
    xpc_dictionary_set_string(message, "text", text.c_str());
    if (command != nullptr)
        xpc_dictionary_set_string(message, "command", command);
    return message;
}

// "invalid", "interrupted", "imminent", or the text of a message.
inline std::string describe(xpc_object_t event) {
    if (event == XPC_ERROR_CONNECTION_INVALID)
        return "invalid";
    if (event == XPC_ERROR_CONNECTION_INTERRUPTED)
        return "interrupted";
    if (event == XPC_ERROR_TERMINATION_IMMINENT)
        return "imminent";
    const char* const text = xpc_dictionary_get_string(event, "text");
    return text == nullptr ? "no text" : text;
}

// A list of texts that handlers add to from any thread.
class Log {
public:
    void add(const std::string& line) {
        const std::lock_guard lock(mutex_);
        lines_.push_back(line);
    }
    std::vector<std::string> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }
    bool reaches(std::size_t count) const {
        return serveUntil([&] { return lines().size() >= count; });
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

using Lines = std::vector<std::string>;

// A connection with its events in a log; cancelled at the end, when every handler must have been called.
class Peer {
public:
    explicit Peer(xpc_connection_t connection) : connection_(connection) {
        xpc_connection_set_event_handler(connection_, [this](xpc_object_t event) {
            if (xpc_dictionary_get_remote_connection(event) != connection_)
                log.add("foreign connection");
            log.add(describe(event));
            if (onEvent)
                onEvent(event);
            over = over || event == XPC_ERROR_CONNECTION_INVALID;
        });
    }
    explicit Peer(const char* service) : Peer(xpc_connection_create_mach_service(service, nullptr, 0)) {
        resume();
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer() {
        xpc_connection_cancel(connection_);
        EXPECT_TRUE(serveUntil([this] { return over.load(); }));
        EXPECT_TRUE(replies.reaches(asked_));
        xpc_release(connection_);
    }

    xpc_connection_t get() const { return connection_; }
    void resume() { xpc_connection_resume(connection_); }
    void send(const std::string& text, const char* command = nullptr) {
        const xpc_object_t message = makeMessage(text, command);
        xpc_connection_send_message(connection_, message);
        xpc_release(message);
    }
    // The answer goes to `replies`.
    void ask(const std::string& text, const char* command = nullptr) {
        const xpc_object_t message = makeMessage(text, command);
        ++asked_;
        xpc_connection_send_message_with_reply(connection_, message, nullptr, [this](xpc_object_t reply) {
            lastBefore = xpc_dictionary_get_int64(reply, "before");
            lastPid = xpc_dictionary_get_int64(reply, "pid");
            replies.add(describe(reply));
        });
        xpc_release(message);
    }

    Log log;
    Log replies;
    std::atomic<long> lastBefore{-1};
    std::atomic<long> lastPid{-1};
    std::atomic<bool> over{false};
    std::function<void(xpc_object_t)> onEvent;

private:
    xpc_connection_t connection_;
    std::atomic<std::size_t> asked_{0};
};

inline std::size_t openDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

class XPCTest : public testing::Test {
protected:
    void SetUp() override {
        std::array<char, 64> folder{"/tmp/xpcport-test-XXXXXX"};
        ASSERT_NE(mkdtemp(folder.data()), nullptr);
        folder_ = folder.data();
        setenv("XDG_RUNTIME_DIR", folder_.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    const std::string& folder() const { return folder_; }

private:
    std::string folder_;
};
