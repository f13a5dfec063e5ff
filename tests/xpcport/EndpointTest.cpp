#include "support/ChildProcess.h"
#include "xpc/XPCEndpoint.h"
#include "xpc/XPCRuntimeFolder.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using port::XPCEndpoint;

constexpr const char* kService = "com.example.service";

class XPCEndpointTest : public testing::Test {
protected:
    // A socket bound at the service's path, listening or not.
    port::UniqueFd bindByHand(bool listening) const {
        ::mkdir(folder.c_str(), 0700);
        port::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_TRUE(!listening || ::listen(socket.get(), 5) == 0);
        return socket;
    }

    const PrivatePlace place;
    const std::string folder = port::xpcRuntimeFolder();
    const std::string path = port::xpcServicePath(folder, kService, ".sock");
};

// 0, or why the name cannot be taken.
int start() {
    return XPCEndpoint::listen(kService) == nullptr ? errno : 0;
}

// Runs `body` in a process of its own; its result is the exit status.
pid_t inChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(body());
    return child;
}

int statusOf(pid_t child) {
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(XPCEndpointTest, RunsInAFolderOfOurOwnOnly) {
    const std::tuple<const char*, std::function<void()>, int> rows[] = {
        {"ours", [&] { ::mkdir(folder.c_str(), 0700); }, 0},
        {"open to others", [&] { ::mkdir(folder.c_str(), 0755); }, EACCES},
        {"sticky", [&] { ::mkdir(folder.c_str(), 01700); }, EACCES},
        {"a link to ours", [&] { fs::create_directory_symlink(place.Path(), folder); }, ENOTDIR},
        {"a file", [&] { std::ofstream{folder}; }, ENOTDIR},
    };
    for (const auto& [name, prepare, error] : rows) {
        fs::remove_all(folder);
        prepare();
        EXPECT_EQ(start(), error) << name;
        const auto endpoint = XPCEndpoint::listen(kService);
        EXPECT_EQ(bool(port::xpcConnect(kService)), error == 0) << name;
    }
}

TEST_F(XPCEndpointTest, PathsFitASocketAddress) {
    const std::string deep(60, 'd');
    for (const auto& [name, length] : {std::pair(std::string(41, 'n'), 107U),
                                       {std::string(42, 'n'), 107U},
                                       {"../x", 60U + 4 + 1 + 17 + 5}}) {
        const std::string full = port::xpcServicePath(deep, name, ".sock");
        EXPECT_EQ(full.size(), length) << name;
        EXPECT_EQ(full.rfind('/'), deep.size()) << name;
        EXPECT_EQ(full == deep + "/" + name + ".sock", name.size() == 41) << name;
        EXPECT_NE(full, port::xpcServicePath(deep, name + "n", ".sock"));
    }
    EXPECT_EQ(port::xpcServicePath(std::string(84, 'd'), "name", ".sock").size(), 84U + 10);
    EXPECT_EQ(port::xpcServicePath(std::string(85, 'd'), "name", ".sock"), "");
}

TEST_F(XPCEndpointTest, OnlyADeadOwnersSocketIsReplaced) {
    ::umask(0);
    auto owner = XPCEndpoint::listen(kService);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms{0600});
    EXPECT_EQ(start(), EADDRINUSE);
    EXPECT_EQ(statusOf(inChild(start)), EADDRINUSE);
    owner.reset();
    EXPECT_EQ(statusOf(inChild(start)), 0);
    owner = XPCEndpoint::listen(kService);
    fs::remove(path);
    EXPECT_EQ(start(), EADDRINUSE) << "the lock alone holds the name";
    const port::UniqueFd other = bindByHand(true);
    owner->unlinkOwn();
    EXPECT_TRUE(fs::exists(path)) << "another's socket was removed";
    owner.reset();
    EXPECT_EQ(start(), EADDRINUSE) << "a live socket without a lock was stolen";
    fs::remove(path);
    std::ofstream{path} << "precious";
    EXPECT_EQ(start(), ENOTSOCK);
    EXPECT_EQ(fs::file_size(path), 8U);
    fs::remove(path);
    XPCEndpoint::listen(kService)->unlinkOwn();
    EXPECT_FALSE(fs::exists(path));
}

// All start at once over the socket of a dead owner; the losers say that the name is taken.
TEST_F(XPCEndpointTest, FiftyStartsOverAStaleSocketGiveOneOwner) {
    bindByHand(false).reset();
    int gate[2];
    ASSERT_EQ(::pipe(gate), 0);
    for (int i = 0; i < 50; ++i)
        inChild([&] {
            char byte = 0;
            ::close(gate[1]);
            const ssize_t opened = ::read(gate[0], &byte, 1);
            const auto endpoint = XPCEndpoint::listen(kService);
            return opened != 0 ? 3 : endpoint == nullptr ? errno : ::pause();
        });
    ::close(gate[0]);
    ::close(gate[1]);
    for (int left = 50; left > 1; --left)
        EXPECT_EQ(statusOf(-1), EADDRINUSE);
    // The losers may have ended before the winner, who has the lock, listens.
    port::UniqueFd client;
    while (!(client = port::xpcConnect(kService)))
        std::this_thread::yield();
    pid_t winner = 0;
    ASSERT_TRUE(port::xpcPeerIsOurs(client.get(), winner));
    EXPECT_EQ(::kill(winner, SIGKILL), 0);
    EXPECT_EQ(statusOf(winner), -1);
}

TEST_F(XPCEndpointTest, UsesTheSocketThatAServiceManagerHandsOver) {
    const auto isUsed = [&](const char* count, const char* names, int pidOffset = 0, bool listening = true,
                            bool held = false) {
        fs::remove_all(folder);
        return statusOf(inChild([&] {
            const auto holder = held ? XPCEndpoint::listen(kService) : nullptr;
            fs::remove(path);
            const port::UniqueFd handed = bindByHand(listening);
            ::dup2(handed.get(), 3);
            ::setenv("LISTEN_PID", std::to_string(::getpid() + pidOffset).c_str(), 1);
            ::setenv("LISTEN_FDS", count, 1);
            if (names != nullptr)
                ::setenv("LISTEN_FDNAMES", names, 1);
            const auto endpoint = XPCEndpoint::listen(kService);
            if (endpoint == nullptr || endpoint->socket() != 3)
                return 0;
            endpoint->unlinkOwn();
            return ::fcntl(3, F_GETFD) == FD_CLOEXEC && fs::exists(path) ? 1 : 2;
        }));
    };
    EXPECT_EQ(isUsed("1", kService), 1);
    EXPECT_EQ(isUsed("1", "com.example.service.socket"), 1) << "named after the unit";
    EXPECT_EQ(isUsed("1", nullptr), 1) << "unnamed";
    EXPECT_EQ(isUsed("1", "other:com.example.service"), 0);
    EXPECT_EQ(isUsed("1", kService, 1), 0) << "another's process id";
    EXPECT_EQ(isUsed("1", kService, 0, false), 0) << "not listening";
    EXPECT_EQ(isUsed("1", kService, 0, true, true), 1) << "nobody reaches the former owner";
    EXPECT_EQ(isUsed("0", kService), 0);
    EXPECT_EQ(isUsed("1x", kService), 0);
}

} // namespace
