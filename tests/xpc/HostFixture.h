// A test with a host process that serves, and a client of it in the test's own process.
//
// Thread-safety: none; the test's main thread.
#pragma once

#include <gtest/gtest.h>
#include <memory>

#include "support/ChildProcess.h"
#include "support/RecordingClient.h"

class HostFixture : public testing::Test {
protected:
    static constexpr const char* Service = "Test.Service";

    void SetUp() override { Start(); }

    // A new host, which serves when the call returns, and a new client of it. An id replaces those of the
    // host's peers.
    void Start(const char* peerId = "-1") {
        host.reset();
        host =
            std::make_unique<ChildProcess>(std::vector<std::string>{HostPath("xpc_host"), Service, peerId});
        ASSERT_EQ(host->ReadLine(), "ready");
        client = std::make_unique<LXPCClient>(&sink);
        client->AddKey("TEXT", LXPCDataTypeString);
        for (const char* name : {"MESSAGES", "SENT", "PUSHED"})
            client->AddKey(name, LXPCDataTypeInt64);
        ASSERT_TRUE(client->Connect(Service, 1, true));
    }

    void Send(const std::vector<LXPCData>& items, bool wantReply, const char* name = Service,
              unsigned long number = 1) {
        client->SendMessage(name, number, items.data(), items.size(), wantReply);
    }

    // Asks the host and gives the event that follows.
    std::string Ask(const std::vector<LXPCData>& items, const char* name = Service) {
        const std::size_t before = sink.Lines().size();
        Send(items, true, name);
        return WaitFor([&] { return sink.Lines().size() > before; }, 3000) ? sink.Lines().back() : "nothing";
    }

    static LXPCData Push(long count) { return Item("PUSH", LXPCDataTypeInt64, count); }

    const LXPCData text = TextItem("TEXT", "x");
    PrivatePlace place;
    std::unique_ptr<ChildProcess> host;
    RecordingSink sink;
    std::unique_ptr<LXPCClient> client;
};
