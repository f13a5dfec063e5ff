// Two processes: services that are started, killed, replaced and bundled.
#include "ConnectionSupport.h"
#include "xpc/XPCEndpoint.h"

#include <csignal>
#include <memory>
#include <spawn.h>
#include <sys/wait.h>

namespace {

// The host program serving a name; killed at the end.
class Host {
public:
    explicit Host(const char* service) {
        std::string name(service);
        char program[] = TEST_HOST;
        char* const arguments[] = {program, name.data(), nullptr};
        EXPECT_EQ(posix_spawn(&pid_, program, nullptr, nullptr, arguments, environ), 0);
        EXPECT_TRUE(serveUntil([&] { return bool(port::xpcConnect(name)); }));
    }
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host() { stop(); }

    pid_t pid() const { return pid_; }
    // The wait status.
    int stop(int signal = SIGKILL) {
        int status = 0;
        if (pid_ > 0) {
            kill(pid_, signal);
            waitpid(pid_, &status, 0);
            pid_ = 0;
        }
        return status;
    }

private:
    pid_t pid_ = 0;
};

using ServiceTest = XPCTest;

TEST_F(ServiceTest, AnswersAcrossProcessesAndLetsItsPidBeKnown) {
    const Host host(kService);
    Peer client(kService);
    for (int i = 0; i < 100; ++i)
        client.ask("hello");
    ASSERT_TRUE(client.replies.reaches(100));
    EXPECT_EQ(client.replies.lines(), Lines(100, "hello"));
    EXPECT_EQ(client.lastBefore, 99);
    EXPECT_EQ(client.lastPid, host.pid());
}

TEST_F(ServiceTest, AServiceThatIsNotThereIsInvalid) {
    Peer client("nobody.serves.this");
    client.ask("hello");
    client.ask("hello again");
    EXPECT_TRUE(client.replies.reaches(2));
    EXPECT_TRUE(client.log.reaches(1));
    serveFor(20ms);
    EXPECT_EQ(client.log.lines(), Lines{"invalid"});
    EXPECT_EQ(client.replies.lines(), (Lines{"invalid", "invalid"}));
}

TEST_F(ServiceTest, NamesThatCannotBeServedGiveNoConnection) {
    for (const char* name : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(xpc_connection_create(name, nullptr), nullptr);
        EXPECT_EQ(xpc_connection_create_mach_service(name, nullptr, 0), nullptr);
        EXPECT_EQ(xpc_connection_create_mach_service(name, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER),
                  nullptr);
    }
    const Host host(kService);
    EXPECT_EQ(xpc_connection_create_mach_service(kService, nullptr, XPC_CONNECTION_MACH_SERVICE_LISTENER),
              nullptr);
}

TEST_F(ServiceTest, AKilledServiceInterruptsOnceAndItsSuccessorIsReached) {
    auto host = std::make_unique<Host>(kService);
    Peer client(kService);
    client.ask("first");
    ASSERT_TRUE(client.replies.reaches(1));
    client.ask("never answered", "ignore");
    host->stop();
    ASSERT_TRUE(client.log.reaches(1));
    ASSERT_TRUE(client.replies.reaches(2));
    host = std::make_unique<Host>(kService); // over the stale socket
    client.ask("second");
    ASSERT_TRUE(client.replies.reaches(3));
    serveFor(20ms);
    EXPECT_EQ(client.replies.lines(), (Lines{"first", "interrupted", "second"}));
    EXPECT_EQ(client.log.lines(), Lines{"interrupted"});
    EXPECT_EQ(client.lastBefore, 0);
    host->stop();
    ASSERT_TRUE(client.log.reaches(2));
    client.ask("nobody");
    ASSERT_TRUE(client.replies.reaches(4));
    ASSERT_TRUE(client.log.reaches(3));
    EXPECT_EQ(client.log.lines(), (Lines{"interrupted", "interrupted", "invalid"}));
}

TEST_F(ServiceTest, ExitFromAHandlerUnderTrafficEndsCleanly) {
    for (int round = 0; round < 10; ++round) {
        Host host(kService);
        std::vector<std::unique_ptr<Peer>> clients;
        for (int i = 0; i < 20; ++i)
            clients.push_back(std::make_unique<Peer>(kService));
        for (int i = 0; i < 40; ++i) {
            for (auto& client : clients)
                client->ask("traffic");
        }
        clients[0]->send("", "exit");
        for (auto& client : clients)
            ASSERT_TRUE(client->log.reaches(1));
        const int status = host.stop(0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "round " << round << ": " << status;
        EXPECT_FALSE(std::filesystem::exists(folder() + "/port-xpc/" + kService + ".sock"));
        for (auto& client : clients)
            EXPECT_TRUE(client->replies.reaches(40));
    }
}

// The host program plays both the main application and its service.
TEST_F(ServiceTest, ABundledServiceIsStartedWhenItIsFirstNeeded) {
    namespace fs = std::filesystem;
    const fs::path contents = folder() + "/Main.app/Contents";
    const fs::path service = contents / "XPCServices/test.bundled.xpc/Contents/MacOS";
    fs::create_directories(contents / "MacOS");
    fs::create_directories(service);
    fs::copy_file(TEST_HOST, service / "bundled");
    fs::copy_file(TEST_HOST, contents / "MacOS/main");
    const std::string program = contents / "MacOS/main";
    for (const auto& [name, expected] : {std::pair("test.bundled", 0), std::pair("test.unknown", 1)}) {
        const std::string command = program + " --call " + name;
        EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), expected) << name;
    }
    Peer client("test.bundled"); // it still runs: its end shows when it is told to
    client.send("", "exit");
    EXPECT_TRUE(client.log.reaches(1));
}

} // namespace
