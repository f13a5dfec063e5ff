#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

#include "xpc/HostFixture.h"
#include "xpc/LXPCServer.h"

namespace {

class XpcEndpoint : public HostFixture {};

TEST_F(XpcEndpoint, RepliesHoldTheDeclaredKeysInOrder) {
    EXPECT_EQ(Ask({TextItem("TEXT", "h\xC3\xA9llo"), TextItem("UNDECLARED", "x")}),
              "reply TEXT=h\xC3\xA9llo MESSAGES=1 SENT=0");
    // Names without regard to case, the number exactly; of two items with one name the earlier.
    EXPECT_EQ(Ask({TextItem("TEXT", ""), text}, "TEST.service"), "reply TEXT= MESSAGES=2 SENT=1");
    Send({text}, true, Service, 2);
    Send({text}, true, "Test.Servic");
    // Without a declared key there is no event: these are neither answered nor counted.
    Send({}, true);
    Send({TextItem("UNDECLARED", "x")}, true);
    EXPECT_EQ(Ask({TextItem("TEXT", "last")}), "reply TEXT=last MESSAGES=3 SENT=2");
    EXPECT_EQ(sink.Lines().size(), 3u);
}

TEST_F(XpcEndpoint, NewerConnectionHidesTheOlder) {
    Ask({text});
    const long older = sink.lastConnection;
    ASSERT_TRUE(client->Connect(Service, 1, true));
    Ask({text});
    EXPECT_NE(sink.lastConnection, older);
    client->Disconnect(Service, 1);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 1") == 1; }));
    Ask({text});
    EXPECT_EQ(sink.lastConnection, older);
}

TEST_F(XpcEndpoint, SuspensionHoldsMessagesBack) {
    client->Suspend(Service, 1);
    client->Suspend(Service, 1);
    Send({Push(20)}, false);
    Serve(100);
    EXPECT_EQ(sink.Count("message"), 0u);
    client->Resume(Service, 1);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("message") == 20; }));
}

TEST_F(XpcEndpoint, DropsAndDeaths) {
    Ask({text});
    Send({Item("DROP", LXPCDataTypeInt64, 1)}, false);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 2") == 1; })) << "the server dropped the connection";
    EXPECT_EQ(Ask({text}), "reply TEXT=x MESSAGES=3 SENT=1");
    Send({Item("QUIT", LXPCDataTypeInt64, 1)}, true);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 2") >= 2; }));
    EXPECT_EQ(host->Wait(), 0);
    Send({text}, false);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("sent") == 2; })) << "confirmed on a dead connection too";
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error 1") >= 1; }));
    EXPECT_FALSE(client->Connect("", 1, true));
    EXPECT_FALSE(client->Connect(nullptr, 1, true));
}

TEST_F(XpcEndpoint, NothingArrivesAfterDestructionAndNothingRuns) {
    std::size_t before = 0;
    std::atomic<int> running = 0;
    const auto destroy = [&] {
        EXPECT_NE(client, nullptr) << "a second reply";
        while (running == 0)
            std::this_thread::yield();
        client.reset();
        EXPECT_EQ(running, 0) << "on another thread";
        before = sink.Lines().size();
    };
    for (const bool insideEvent : {false, true}) {
        Start();
        sink.onMessage = [&, used = client.get()] {
            running++;
            usleep(200'000); // no wait with a limit is to be longer
            used->SendMessage(sink.lastConnection, {}, false);
            running--;
        };
        for (int n = 0; n < 50; n++)
            Send({text, Push(3)}, n % 2 == 0);
        if (insideEvent)
            sink.onReply = destroy;
        else
            destroy();
        EXPECT_TRUE(WaitFor([&] { return client == nullptr; }));
        Serve(200);
        EXPECT_EQ(sink.Lines().size(), before) << insideEvent;
    }
}

TEST_F(XpcEndpoint, PeersAreAcceptedByProcessId) {
    for (const auto& [id, accepted] :
         {std::pair("0", false), {"1", true}, {"99999", true}, {"100000", false}, {"-7", false}}) {
        Start(id);
        const std::size_t before = sink.Count("reply");
        Send({text}, true);
        if (accepted)
            EXPECT_TRUE(WaitFor([&] { return sink.Count("reply") > before; })) << id;
        else
            EXPECT_EQ(host->ReadLine(), "refused") << id;
    }
}

TEST(XpcServer, LeavesAloneWhatIsNoConnection) {
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
    for (void* error : {static_cast<void*>(&sink), XPC_ERROR_CONNECTION_INVALID,
                        XPC_ERROR_CONNECTION_INTERRUPTED, XPC_ERROR_TERMINATION_IMMINENT})
        ErrorHandler(error, 5, &sink);
    EXPECT_EQ(sink.Lines(), (std::vector<std::string>{"error 0", "error 1", "error 2", "error 3"}));
}

} // namespace
