// Both ends in one process: the contract of a connection.
#include "ConnectionSupport.h"

#include <memory>
#include <numeric>
#include <sys/resource.h>
#include <thread>

namespace {

// A listener in this process. Accepted peers echo what wants a reply; those that `refuse` names are dropped.
class ConnectionTest : public XPCTest {
protected:
    void SetUp() override {
        XPCTest::SetUp();
        listener_ = xpc_connection_create_mach_service(kService, dispatch_get_main_queue(),
                                                       XPC_CONNECTION_MACH_SERVICE_LISTENER);
        ASSERT_NE(listener_, nullptr);
        xpc_connection_set_event_handler(listener_, [this](xpc_object_t event) {
            if (xpc_get_type(event) != XPC_TYPE_CONNECTION)
                return listenerLog_.add(describe(event));
            if (!refuse_)
                accept(static_cast<xpc_connection_t>(event));
        });
        xpc_connection_resume(listener_);
    }
    void TearDown() override {
        peers_.clear();
        xpc_connection_cancel(listener_);
        EXPECT_TRUE(serveUntil(
            [&] { return !listenerLog_.lines().empty() && listenerLog_.lines().back() == "invalid"; }));
        xpc_release(listener_);
        XPCTest::TearDown();
    }

    void accept(xpc_connection_t connection) {
        xpc_retain(connection);
        peers_.push_back(std::make_unique<Peer>(connection));
        Peer& peer = *peers_.back();
        peer.onEvent = [connection](xpc_object_t event) {
            const xpc_object_t reply = xpc_dictionary_create_reply(event);
            if (reply == nullptr)
                return;
            xpc_dictionary_set_string(reply, "text", xpc_dictionary_get_string(event, "text"));
            xpc_connection_send_message(connection, reply);
            xpc_release(reply);
        };
        if (resumeAccepted_)
            peer.resume();
    }
    Peer& firstPeer() {
        EXPECT_TRUE(serveUntil([&] { return !peers_.empty(); }));
        return *peers_.front();
    }

    xpc_connection_t listener_ = nullptr;
    Log listenerLog_;
    std::vector<std::unique_ptr<Peer>> peers_;
    bool refuse_ = false;
    bool resumeAccepted_ = true;
};

Lines numbered(int count) {
    Lines lines;
    for (int i = 0; i < count; ++i)
        lines.push_back(std::to_string(i));
    return lines;
}

TEST_F(ConnectionTest, MessagesRepliesAndBarriersKeepTheirOrder) {
    constexpr int kCount = 3000;
    Log barriers;
    Peer client(kService);
    for (int i = 0; i < kCount; ++i) {
        client.ask(std::to_string(i));
        xpc_connection_send_barrier(client.get(), [&barriers, i] { barriers.add(std::to_string(i)); });
    }
    ASSERT_TRUE(client.replies.reaches(kCount));
    ASSERT_TRUE(barriers.reaches(kCount));
    EXPECT_EQ(client.replies.lines(), numbered(kCount));
    EXPECT_EQ(barriers.lines(), numbered(kCount));
    EXPECT_EQ(firstPeer().log.lines(), numbered(kCount));
}

TEST_F(ConnectionTest, ManyThreadsMaySendOnOneConnection) {
    constexpr int kThreads = 4;
    constexpr int kEach = 500;
    std::atomic<int> barriers{0};
    Peer client(kService);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kEach; ++i) {
                client.ask("x");
                xpc_connection_send_barrier(client.get(), [&] { ++barriers; });
            }
        });
    }
    EXPECT_TRUE(client.replies.reaches(kThreads * kEach));
    for (auto& thread : threads)
        thread.join();
    EXPECT_TRUE(serveUntil([&] { return barriers == kThreads * kEach; }));
    serveFor(20ms);
    EXPECT_EQ(client.replies.lines().size(), std::size_t{kThreads} * kEach); // each handler once
}

TEST_F(ConnectionTest, BothSidesSendMoreThanTheSocketHolds) {
    constexpr int kCount = 200;
    const std::string large(60000, 'x');
    Peer client(kService);
    for (int i = 0; i < kCount; ++i)
        client.ask(large);
    ASSERT_TRUE(client.replies.reaches(kCount));
    for (const std::string& line : client.replies.lines())
        ASSERT_EQ(line.size(), large.size());
}

TEST_F(ConnectionTest, WhatIsSentBeforeTheFirstResumeWaitsInOrder) {
    const auto connection = xpc_connection_create_mach_service(kService, nullptr, 0);
    Peer client(connection);
    Log barriers;
    for (int i = 0; i < 5; ++i)
        client.ask(std::to_string(i));
    xpc_connection_send_barrier(connection, [&] { barriers.add("handed over"); });
    serveFor(30ms);
    EXPECT_TRUE(peers_.empty());
    EXPECT_TRUE(barriers.lines().empty());
    client.resume();
    EXPECT_TRUE(client.replies.reaches(5));
    EXPECT_EQ(client.replies.lines(), numbered(5));
    EXPECT_TRUE(barriers.reaches(1));
}

TEST_F(ConnectionTest, NothingIsDeliveredWhileSuspended) {
    Peer client(kService);
    client.send("0");
    Peer& peer = firstPeer();
    ASSERT_TRUE(peer.log.reaches(1));
    xpc_connection_suspend(peer.get());
    for (int i = 1; i < 2000; ++i)
        client.send(std::to_string(i));
    serveFor(50ms);
    EXPECT_EQ(peer.log.lines().size(), 1U);
    xpc_connection_resume(peer.get());
    EXPECT_TRUE(peer.log.reaches(2000));
    EXPECT_EQ(peer.log.lines(), numbered(2000));
}

TEST_F(ConnectionTest, CancelGivesWaitingRepliesAndTheHandlerOneLastInvalid) {
    resumeAccepted_ = false; // nobody answers
    Peer client(kService);
    client.ask("a");
    client.ask("b");
    firstPeer();
    xpc_connection_cancel(client.get());
    xpc_connection_cancel(client.get());
    client.ask("after");
    client.send("after");
    std::atomic<int> barriers{0};
    xpc_connection_send_barrier(client.get(), [&] { ++barriers; });
    EXPECT_TRUE(client.replies.reaches(3));
    EXPECT_TRUE(client.log.reaches(1));
    port_inject_error_event(client.get(), XPC_ERROR_CONNECTION_INTERRUPTED);
    serveFor(30ms);
    EXPECT_EQ(client.replies.lines(), (Lines{"invalid", "invalid", "invalid"}));
    EXPECT_EQ(client.log.lines(), Lines{"invalid"});
    EXPECT_EQ(barriers, 1);
    firstPeer().resume();
    EXPECT_TRUE(firstPeer().log.reaches(3));
    EXPECT_EQ(firstPeer().log.lines(), (Lines{"a", "b", "invalid"}));
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
    EXPECT_TRUE(client.log.reaches(1));
    EXPECT_TRUE(peer.log.reaches(2));
    serveFor(20ms);
    EXPECT_EQ(peer.log.lines(), (Lines{"0", "invalid"}));
    EXPECT_EQ(client.log.lines(), Lines{"interrupted"});
}

TEST_F(ConnectionTest, ErrorsNameTheConnectionWhoseHandlerRuns) {
    Peer client(kService); // its handler logs "foreign connection" otherwise
    for (const xpc_object_t error : {XPC_ERROR_TERMINATION_IMMINENT, XPC_ERROR_CONNECTION_INTERRUPTED})
        port_inject_error_event(client.get(), error);
    EXPECT_TRUE(client.log.reaches(2));
    EXPECT_EQ(client.log.lines(), (Lines{"imminent", "interrupted"}));
    EXPECT_EQ(xpc_dictionary_get_remote_connection(XPC_ERROR_CONNECTION_INVALID), nullptr);
    port_inject_error_event(listener_, XPC_ERROR_TERMINATION_IMMINENT);
    EXPECT_TRUE(listenerLog_.reaches(1));
}

TEST_F(ConnectionTest, ARefusedPeerIsClosedAndLeavesNothing) {
    refuse_ = true;
    const std::size_t before = openDescriptors();
    for (int i = 0; i < 20; ++i) {
        Peer client(kService);
        client.ask("hello");
        ASSERT_TRUE(client.replies.reaches(1));
        EXPECT_EQ(client.replies.lines(), Lines{"interrupted"});
    }
    EXPECT_TRUE(serveUntil([&] { return openDescriptors() <= before + 3; }))
        << openDescriptors(); // the pool's
}

TEST_F(ConnectionTest, AListenerWithoutDescriptorsTurnsPeersAwayAndRecovers) {
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    Peer client(kService);
    {
        // The client has its descriptor, the listener finds none for its end.
        const int lowestFree = dup(STDIN_FILENO);
        close(lowestFree);
        const rlimit tight{static_cast<rlim_t>(lowestFree), usual.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
        EXPECT_TRUE(client.log.reaches(1));
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
    }
    EXPECT_EQ(client.log.lines(), Lines{"interrupted"});
    client.ask("again");
    EXPECT_TRUE(client.replies.reaches(1));
    EXPECT_EQ(client.replies.lines(), Lines{"again"});
}

TEST_F(ConnectionTest, ReportsThePeersProcessFoldedAndUnfoldedWhenForced) {
    Peer client(kService);
    EXPECT_EQ(xpc_connection_get_pid(firstPeer().get()), getpid());
    EXPECT_EQ(xpc_connection_get_pid(client.get()), getpid());
    EXPECT_EQ(xpc_connection_get_pid(listener_), 0);
    for (const pid_t forced : {0, 99999, 100000, 4194304}) {
        port_set_raw_peer_pid(forced);
        peers_.clear();
        Peer other(kService);
        EXPECT_EQ(xpc_connection_get_pid(firstPeer().get()), forced);
    }
    port_set_raw_peer_pid(-1);
}

TEST_F(ConnectionTest, AHandlerThatWaitsForAReplyGetsIt) {
    Peer client(kService);
    Peer& peer = firstPeer();
    // The reply is read while the handler of the same connection is still running.
    std::atomic<bool> answered{false};
    client.onEvent = [&](xpc_object_t) {
        const xpc_object_t message = makeMessage("inner");
        xpc_connection_send_message_with_reply(client.get(), message, dispatch_get_global_queue(0, 0),
                                               [&](xpc_object_t) { answered = true; });
        xpc_release(message);
        for (int i = 0; i < 2000 && !answered; ++i)
            std::this_thread::sleep_for(5ms);
    };
    const xpc_object_t message = makeMessage("go");
    xpc_connection_send_message(peer.get(), message);
    xpc_release(message);
    EXPECT_TRUE(client.log.reaches(1));
    EXPECT_TRUE(serveUntil([&] { return answered.load(); }, 5s));
    client.onEvent = nullptr;
}

TEST_F(ConnectionTest, AConnectionThatIsLetGoStillGetsItsReply) {
    const auto connection = xpc_connection_create_mach_service(kService, nullptr, 0);
    xpc_connection_set_event_handler(connection, [](xpc_object_t) {});
    xpc_connection_resume(connection);
    Log replies;
    const xpc_object_t message = makeMessage("last");
    xpc_connection_send_message_with_reply(connection, message, nullptr,
                                           [&](xpc_object_t reply) { replies.add(describe(reply)); });
    xpc_release(message);
    xpc_release(connection);
    EXPECT_TRUE(replies.reaches(1));
    EXPECT_EQ(replies.lines(), Lines{"last"});
}

} // namespace
