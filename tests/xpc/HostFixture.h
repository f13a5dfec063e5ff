// A test with a host process that serves, and a client of it in the test's own process.
//
// Thread-safety: none; the test's main thread.
#pragma once

#include <gtest/gtest.h>
#include <memory>

#include "xpc/ChildProcess.h"
#include "xpc/RecordingClient.h"

class HostFixture : public testing::Test {
protected:
    static constexpr const char* Service = "Test.Service";

    // Replaces the host; returns when it serves.
    void StartHost(std::vector<std::string> more = {}) {
        std::vector<std::string> arguments = {HostPath("xpc_host"), Service};
        arguments.insert(arguments.end(), more.begin(), more.end());
        host.reset();
        host = std::make_unique<ChildProcess>(arguments);
        ASSERT_EQ(host->ReadLine(), "ready");
    }

    void SetUp() override {
        StartHost();
        client = std::make_unique<LXPCClient>(&sink);
        DeclareHostReplies(*client);
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

    PrivatePlace place;
    std::unique_ptr<ChildProcess> host;
    RecordingSink sink;
    std::unique_ptr<LXPCClient> client;
};
