#include <gtest/gtest.h>
#include <memory>
#include <port/seams.h>
#include <thread>

#include "xpc/HostFixture.h"
#include "xpc/LXPCServer.h"

namespace {

class XpcEndpoint : public HostFixture {};

TEST_F(XpcEndpoint, RepliesHoldTheDeclaredKeysInOrder) {
    EXPECT_EQ(Ask({Item("PUSH", LXPCDataTypeInt64, 0), TextItem("TEXT", "h\xC3\xA9llo"),
                   TextItem("UNDECLARED", "x")}),
              "reply NAMES=TEXT,PUSH TEXT=h\xC3\xA9llo MESSAGES=1 SENT=0");
    EXPECT_EQ(Ask({TextItem("TEXT", "first"), TextItem("TEXT", "second")}),
              "reply NAMES=TEXT TEXT=first MESSAGES=2 SENT=1");
    // Names without regard to case, the number exactly.
    EXPECT_EQ(Ask({TextItem("TEXT", "")}, "TEST.service"), "reply NAMES=TEXT TEXT= MESSAGES=3 SENT=2");
    Send({TextItem("TEXT", "")}, true, Service, 2);
    Send({TextItem("TEXT", "")}, true, "Test.Servic");
    // Without a declared key there is no event: these are neither answered nor counted.
    Send({}, true);
    Send({TextItem("UNDECLARED", "x")}, true);
    EXPECT_EQ(Ask({TextItem("TEXT", "")}), "reply NAMES=TEXT TEXT= MESSAGES=4 SENT=3");
    EXPECT_EQ(sink.Lines().size(), 4u);
}

TEST_F(XpcEndpoint, OneWayMessagesAreConfirmedOnceEach) {
    for (int n = 0; n < 100; n++)
        Send({TextItem("TEXT", "x")}, false);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("sent") == 100; }));
    EXPECT_EQ(Ask({TextItem("TEXT", "x")}), "reply NAMES=TEXT TEXT=x MESSAGES=101 SENT=0")
        << "messages that ask for no reply get none, and no confirmation follows";
    Serve(50);
    EXPECT_EQ(sink.Lines().size(), 101u);
}

TEST_F(XpcEndpoint, NewerConnectionHidesTheOlder) {
    Ask({TextItem("TEXT", "x")});
    const long older = sink.LastConnection();
    ASSERT_TRUE(client->Connect(Service, 1, true));
    Ask({TextItem("TEXT", "x")});
    EXPECT_NE(sink.LastConnection(), older);
    client->Disconnect(Service, 1);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 1") == 1; }));
    Ask({TextItem("TEXT", "x")});
    EXPECT_EQ(sink.LastConnection(), older);
}

TEST_F(XpcEndpoint, SuspensionHoldsMessagesBackInOrder) {
    client->Suspend(Service, 1);
    client->Suspend(Service, 1);
    Send({Item("PUSH", LXPCDataTypeInt64, 20)}, false);
    Serve(100);
    EXPECT_EQ(sink.Count("message"), 0u);
    client->Resume(Service, 1);
    ASSERT_TRUE(WaitFor([&] { return sink.Count("message") == 20; }));
    std::vector<std::string> expected;
    for (int n = 1; n <= 20; n++)
        expected.push_back("message PUSHED=" + std::to_string(n));
    std::vector<std::string> lines = sink.Lines();
    std::erase(lines, "sent");
    EXPECT_EQ(lines, expected);
}

TEST_F(XpcEndpoint, DropsAndDeaths) {
    Ask({TextItem("TEXT", "x")});
    Send({Item("DROP", LXPCDataTypeBool, 1)}, false);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 2") == 1; })) << "the server dropped the connection";
    EXPECT_EQ(Ask({TextItem("TEXT", "x")}), "reply NAMES=TEXT TEXT=x MESSAGES=3 SENT=1");
    Send({Item("QUIT", LXPCDataTypeBool, 1)}, true);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 2") >= 2; }));
    EXPECT_EQ(host->Wait(), 0);
    Send({TextItem("TEXT", "nobody there")}, false);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("sent") == 2; })) << "confirmed on a dead connection too";
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 1") >= 1; }));
    EXPECT_FALSE(client->Connect("", 1, true));
    EXPECT_FALSE(client->Connect(nullptr, 1, true));
}

TEST_F(XpcEndpoint, NothingArrivesAfterDestruction) {
    for (int n = 0; n < 50; n++)
        Send({TextItem("TEXT", "x"), Item("PUSH", LXPCDataTypeInt64, 3)}, n % 2 == 0);
    client.reset();
    const std::size_t before = sink.Lines().size();
    Serve(200);
    EXPECT_EQ(sink.Lines().size(), before);
}

TEST_F(XpcEndpoint, DestroyedInsideItsOwnEvent) {
    sink.onReply = [this] { client.reset(); };
    for (int n = 0; n < 10; n++)
        Send({TextItem("TEXT", "x")}, true);
    EXPECT_TRUE(WaitFor([&] { return client == nullptr; }));
    Serve(100);
    EXPECT_EQ(sink.Count("reply"), 1u);
}

TEST_F(XpcEndpoint, PeersAreAcceptedByProcessId) {
    const struct {
        const char* pid;
        bool accepted;
    } rows[] = {{"0", false}, {"1", true}, {"99999", true}, {"100000", false}, {"-7", false}};
    for (const auto& row : rows) {
        StartHost({"--peer-pid", row.pid});
        LXPCClient peer(&sink);
        DeclareHostReplies(peer);
        ASSERT_TRUE(peer.Connect(Service, 1, true));
        const LXPCData text = TextItem("TEXT", row.pid);
        const std::size_t before = sink.Count("reply");
        peer.SendMessage(Service, 1, &text, 1, true);
        if (row.accepted)
            EXPECT_TRUE(WaitFor([&] { return sink.Count("reply") > before; })) << row.pid;
        else
            EXPECT_EQ(host->ReadLine(), "refused") << row.pid;
    }
}

TEST(XpcServer, TheNewestServerIsTheStaticOne) {
    RecordingSink sink;
    auto first = std::make_unique<LXPCServer>(&sink);
    EXPECT_EQ(LXPCServerBase::pServer.load(), first.get());
    const LXPCMachServer second(&sink);
    EXPECT_EQ(LXPCServerBase::pServer.load(), &second);
    first.reset();
    EXPECT_EQ(LXPCServerBase::pServer.load(), nullptr);
}

TEST(XpcServer, ErrorsByIdentity) {
    RecordingSink sink;
    int other = 0;
    for (void* error : {static_cast<void*>(&other), XPC_ERROR_CONNECTION_INVALID,
                        XPC_ERROR_CONNECTION_INTERRUPTED, XPC_ERROR_TERMINATION_IMMINENT})
        ErrorHandler(error, 5, &sink);
    EXPECT_EQ(sink.Lines(), (std::vector<std::string>{"error 0", "error 1", "error 2", "error 3"}));
}

TEST(XpcServer, WhatNamesNoConnectionIsLeftAlone) {
    RecordingSink sink;
    LXPCMachServer server(&sink);
    for (void* object : {static_cast<void*>(nullptr), XPC_ERROR_TERMINATION_IMMINENT})
        server.NewConnectionHandler(static_cast<xpc_connection_t>(object));
    for (long handle : {-1L, 0L}) {
        server.Disconnect(handle);
        server.SendMessage(handle, {}, true);
        server.SendReply(handle, handle, {});
    }
    EXPECT_FALSE(server.Start(""));
    EXPECT_FALSE(server.Start(nullptr));
    LXPCConnectionClient record;
    record.Release();
    EXPECT_EQ(record.GetRetainCount(), 0u);
    record.Retain();
    record.Retain();
    EXPECT_EQ(record.GetRetainCount(), 2u);
    EXPECT_TRUE(record.IsSuspended() && !record.IsValid());
    server.SetupConnectionHandlerAndResume(record);
    EXPECT_FALSE(record.IsSuspended());
    record.Suspend();
    record.Cancel();
    EXPECT_TRUE(sink.Lines().empty());
}

} // namespace
