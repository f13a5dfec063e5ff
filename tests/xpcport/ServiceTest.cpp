// Two processes: services that are missing, killed, replaced and bundled.
#include "ConnectionSupport.h"

#include <csignal>
#include <filesystem>
#include <memory>

namespace {

class ServiceTest : public testing::Test {
protected:
    void startHost() {
        host_ = std::make_unique<ChildProcess>(Lines{HostPath("xpcport_host"), kService});
        ASSERT_EQ(host_->ReadLine(), "ready");
    }

    PrivatePlace place_;
    std::unique_ptr<ChildProcess> host_;
};

TEST_F(ServiceTest, NamesThatCannotBeServedGiveNoConnection) {
    startHost();
    const auto open = xpc_connection_create_mach_service;
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(xpc_connection_create(name, nullptr), nullptr);
        EXPECT_EQ(open(name, nullptr, 0), nullptr);
        EXPECT_EQ(open(name, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER), nullptr);
    }
    EXPECT_EQ(open(kService, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER), nullptr) << "served already";
}

TEST_F(ServiceTest, AKilledServiceInterruptsOnceAndItsSuccessorIsReached) {
    startHost();
    Peer client(kService);
    client.ask("first");
    ASSERT_EQ(client.replies.wait(1), Lines{"first"});
    client.ask("ignore");
    host_->Kill(SIGKILL);
    EXPECT_EQ(client.log.wait(1), Lines{"interrupted"});
    EXPECT_EQ(client.replies.wait(2), (Lines{"first", "interrupted"}));
    startHost(); // over the stale socket
    client.ask("second");
    EXPECT_EQ(client.replies.wait(3).back(), "second");
    serveFor(20);
    EXPECT_EQ(client.log.lines(), Lines{"interrupted"});
    client.send("exit");
    EXPECT_EQ(client.log.wait(2), (Lines{"interrupted", "interrupted"}));
    EXPECT_EQ(host_->Wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(place_.Path() + "/port-xpc/" + kService + ".sock"));
    client.ask("nobody there");
    client.ask("still nobody");
    EXPECT_EQ(client.replies.wait(5), (Lines{"first", "interrupted", "second", "invalid", "invalid"}));
    EXPECT_EQ(client.log.wait(3), (Lines{"interrupted", "interrupted", "invalid"}));
}

// The host program plays both the main application and its service.
TEST_F(ServiceTest, ABundledServiceIsStartedWhenItIsFirstNeeded) {
    namespace fs = std::filesystem;
    const fs::path contents = place_.Path() + "/Main.app/Contents";
    const fs::path service = contents / "XPCServices/test.bundled.xpc/Contents/MacOS";
    fs::create_directories(contents / "MacOS");
    fs::create_directories(service);
    for (const fs::path& program : {contents / "MacOS/main", service / "bundled"})
        fs::copy_file(HostPath("xpcport_host"), program);
    for (const auto& [name, status] : {std::pair("test.bundled", 0), std::pair("test.unknown", 1)})
        EXPECT_EQ(ChildProcess({contents / "MacOS/main", "--call", name}).Wait(), status) << name;
    Peer client("test.bundled"); // it still runs: its end shows when it is told to
    client.send("exit");
    EXPECT_EQ(client.log.wait(1), Lines{"interrupted"});
}

} // namespace
