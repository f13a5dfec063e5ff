// Both ends in one process: the contract of a connection.
#include "ConnectionSupport.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

// A listener in this process. Accepted peers echo what wants a reply.
class ConnectionTest : public testing::Test {
protected:
    void SetUp() override { listen(); }
    void TearDown() override {
        endService();
        xpc_release(listener_);
    }
    void listen() {
        listener_ = xpc_connection_create_mach_service(kService, dispatch_get_main_queue(),
                                                       XPC_CONNECTION_MACH_SERVICE_LISTENER);
        ASSERT_NE(listener_, nullptr);
        xpc_connection_set_event_handler(listener_, [this](xpc_object_t event) {
            if (xpc_get_type(event) != XPC_TYPE_CONNECTION)
                listenerLog_.add(event);
            else if (!refuse_)
                accept(static_cast<xpc_connection_t>(event));
        });
        xpc_connection_resume(listener_);
    }
    void endService() {
        peers_.clear();
        xpc_connection_cancel(listener_);
        EXPECT_TRUE(listenerLog_.waitForEnd());
    }

    void accept(xpc_connection_t connection) {
        xpc_retain(connection);
        peers_.push_back(std::make_unique<Peer>(connection));
        peers_.back()->onEvent = [connection](xpc_object_t event) {
            const xpc_object_t reply = xpc_dictionary_create_reply(event);
            EXPECT_EQ(xpc_dictionary_create_reply(event), nullptr) << "a second reply";
            if (reply == nullptr)
                return;
            xpc_dictionary_set_string(reply, "text", xpc_dictionary_get_string(event, "text"));
            xpc_connection_send_message(connection, reply);
            xpc_release(reply);
        };
        if (resumeAccepted_)
            peers_.back()->resume();
    }
    Peer& firstPeer() {
        EXPECT_TRUE(serveUntil([&] { return !peers_.empty(); }));
        return *peers_.front();
    }

    PrivatePlace place_;
    xpc_connection_t listener_ = nullptr;
    Log listenerLog_;
    std::vector<std::unique_ptr<Peer>> peers_;
    bool refuse_ = false;
    bool resumeAccepted_ = true;
};

Lines numbered(int count, const std::string& sender = "") {
    Lines lines;
    for (int i = 0; i < count; ++i)
        lines.push_back(sender + std::to_string(i));
    return lines;
}

TEST_F(ConnectionTest, EachThreadsMessagesRepliesAndBarriersKeepTheirOrder) {
    constexpr int kEach = 1000;
    const Lines senders{"a", "b", "c", "d"};
    Log barriers;
    Peer client(kService);
    std::vector<std::thread> threads;
    for (const std::string& sender : senders) {
        threads.emplace_back([&] {
            for (const std::string& line : numbered(kEach, sender)) {
                client.ask(line);
                xpc_connection_send_barrier(client.get(), [&barriers, line] { barriers.add(line); });
            }
        });
    }
    for (const Log* log : {&client.replies, &barriers, &firstPeer().log})
        EXPECT_EQ(log->wait(senders.size() * kEach).size(), senders.size() * kEach);
    for (auto& thread : threads)
        thread.join();
    serveFor(20);
    for (const Log* log : {&client.replies, &barriers, &firstPeer().log}) {
        for (const std::string& sender : senders) {
            Lines lines = log->lines();
            std::erase_if(lines, [&](const std::string& line) { return line[0] != sender[0]; });
            EXPECT_EQ(lines, numbered(kEach, sender));
        }
    }
}

TEST_F(ConnectionTest, WhatIsNotYetResumedOrSuspendedHoldsBackInOrder) {
    constexpr int kEach = 2000;
    resumeAccepted_ = false;
    Log barriers;
    Peer client(xpc_connection_create_mach_service(kService, nullptr, 0));
    for (int all = kEach; all <= 2 * kEach; all += kEach) {
        for (int i = all - kEach; i < all; ++i)
            client.ask(std::to_string(i));
        xpc_connection_send_barrier(client.get(), [&] { barriers.add("handed over"); });
        serveFor(30);
        if (all == kEach) {
            EXPECT_TRUE(peers_.empty() && barriers.lines().empty());
            client.resume();
            serveFor(30);
        }
        EXPECT_EQ(firstPeer().log.lines(), numbered(all - kEach));
        firstPeer().resume();
        EXPECT_EQ(client.replies.wait(static_cast<std::size_t>(all)), numbered(all));
        xpc_connection_suspend(firstPeer().get());
    }
    EXPECT_EQ(barriers.wait(2).size(), 2U);
    firstPeer().resume();
}

TEST_F(ConnectionTest, CancelGivesRepliesBarriersAndTheHandlerOneEnd) {
    resumeAccepted_ = false; // nobody reads
    Log barriers;
    Peer client(kService);
    client.ask("a");
    client.ask("b");
    firstPeer();
    const auto sendBarrier = [&](int i) {
        xpc_connection_send_barrier(client.get(), [&barriers, i] { barriers.add(std::to_string(i)); });
    };
    for (int i = 0; i < 99; ++i) {
        client.send(std::string(60000, 'x'));
        sendBarrier(i);
    }
    serveFor(20);
    EXPECT_LT(barriers.lines().size(), 99U);
    xpc_connection_cancel(client.get());
    xpc_connection_cancel(client.get());
    client.ask("after");
    client.send("after");
    sendBarrier(99);
    EXPECT_EQ(barriers.wait(100), numbered(100));
    EXPECT_EQ(client.replies.wait(3), Lines(3, "invalid"));
    port_inject_error_event(client.get(), XPC_ERROR_CONNECTION_INTERRUPTED);
    serveFor(30);
    EXPECT_EQ(client.replies.lines().size(), 3U);
    EXPECT_EQ(client.log.lines(), Lines{"invalid"});
    Peer& peer = firstPeer();
    peer.resume();
    EXPECT_TRUE(serveUntil([&] { return peer.over.load(); }));
    const Lines seen = peer.log.lines();
    EXPECT_EQ(Lines(seen.begin(), seen.begin() + 2), (Lines{"a", "b"}));
    EXPECT_EQ(std::count(seen.begin(), seen.end(), "after"), 0);
}

TEST_F(ConnectionTest, CancelFromTheOwnHandlerStopsEverythingBehindIt) {
    Peer client(kService);
    Peer& peer = firstPeer();
    peer.onEvent = [&](xpc_object_t event) {
        if (event != XPC_ERROR_CONNECTION_INVALID)
            xpc_connection_cancel(peer.get());
    };
    for (int i = 0; i < 500; ++i)
        client.send(std::to_string(i));
    EXPECT_EQ(client.log.wait(1), Lines{"interrupted"});
    peer.log.wait(2);
    serveFor(20);
    EXPECT_EQ(peer.log.lines(), (Lines{"0", "invalid"}));
    EXPECT_EQ(client.log.lines(), Lines{"interrupted"});
}

TEST_F(ConnectionTest, ARefusedPeerIsClosedAndLeavesNothing) {
    refuse_ = true;
    const int before = CountDescriptors(getpid());
    for (int i = 0; i < 20; ++i) {
        Peer client(kService);
        client.ask("hello");
        ASSERT_EQ(client.replies.wait(1), Lines{"interrupted"});
    }
    EXPECT_TRUE(serveUntil([&] { return CountDescriptors(getpid()) <= before + 3; })) << "the pool's";
}

TEST_F(ConnectionTest, AListenerWithoutDescriptorsTurnsPeersAwayAndRecovers) {
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    Peer client(kService); // it has its descriptor, the listener finds none for its end
    const int lowestFree = dup(STDIN_FILENO);
    close(lowestFree);
    const rlimit tight{static_cast<rlim_t>(lowestFree), usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    EXPECT_EQ(client.log.wait(1), Lines{"interrupted"});
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
    client.ask("again");
    EXPECT_EQ(client.replies.wait(1), Lines{"again"});
}

// The reply is read while the handler of the same connection is still running.
TEST_F(ConnectionTest, AHandlerThatWaitsForAReplyGetsIt) {
    Peer client(kService);
    std::atomic<bool> answered{false};
    client.onEvent = [&](xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_ERROR)
            return;
        xpc_connection_send_message_with_reply(client.get(), makeMessage("inner").get(),
                                               dispatch_get_global_queue(0, 0),
                                               [&](xpc_object_t) { answered = true; });
        for (int i = 0; i < 2000 && !answered; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    };
    firstPeer().send("go");
    EXPECT_TRUE(serveUntil([&] { return answered.load(); }, 5000));
}

TEST_F(ConnectionTest, AConnectionThatIsLetGoStillGetsItsReply) {
    const auto connection = xpc_connection_create_mach_service(kService, nullptr, 0);
    xpc_connection_set_event_handler(connection, [](xpc_object_t) {});
    xpc_connection_resume(connection);
    Log replies;
    xpc_connection_send_message_with_reply(connection, makeMessage("last").get(), nullptr,
                                           [&](xpc_object_t reply) { replies.add(reply); });
    xpc_release(connection);
    EXPECT_EQ(replies.wait(1), Lines{"last"});
}

} // namespace
