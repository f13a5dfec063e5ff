#include "xpc/ChildProcess.h"
#include "xpc/XPCEndpoint.h"
#include "xpc/XPCRuntimeFolder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
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
    const struct {
        const char* name;
        std::function<void()> prepare;
        int error; // 0: served
    } rows[] = {
        {"missing", [] {}, 0},
        {"ours", [&] { ::mkdir(folder.c_str(), 0700); }, 0},
        {"open to others", [&] { ::mkdir(folder.c_str(), 0755); }, EACCES},
        {"sticky", [&] { ::mkdir(folder.c_str(), 01700); }, EACCES},
        {"a link to ours", [&] { fs::create_directory_symlink(place.Path(), folder); }, ENOTDIR},
        {"a dangling link", [&] { fs::create_directory_symlink("/none", folder); }, ENOTDIR},
        {"a file", [&] { std::ofstream{folder}; }, ENOTDIR},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(folder);
        row.prepare();
        EXPECT_EQ(start(), row.error);
        const auto endpoint = XPCEndpoint::listen(kService);
        EXPECT_EQ(bool(port::xpcConnect(kService)), row.error == 0);
    }
}

TEST_F(XPCEndpointTest, PathsFitASocketAddress) {
    const std::string deep(60, 'd');
    for (const auto& [name, length, hashed] : {std::tuple(std::string("a"), 60U + 7, false),
                                               {std::string(41, 'n'), 107U, false},
                                               {std::string(42, 'n'), 107U, true},
                                               {std::string(5000, 'n'), 107U, true},
                                               {"a/b", 60U + 3 + 1 + 17 + 5, true},
                                               {"../x", 60U + 4 + 1 + 17 + 5, true}}) {
        SCOPED_TRACE(name);
        const std::string full = port::xpcServicePath(deep, name, ".sock");
        EXPECT_EQ(full.size(), length);
        EXPECT_EQ(full.rfind('/'), deep.size());
        EXPECT_EQ(full == deep + "/" + name + ".sock", !hashed);
        EXPECT_NE(full, port::xpcServicePath(deep, name + "n", ".sock"));
    }
    EXPECT_EQ(port::xpcServicePath(deep, "", ".sock"), "");
    EXPECT_EQ(port::xpcServicePath(std::string(84, 'd'), "name", ".sock").size(), 84U + 10);
    EXPECT_EQ(port::xpcServicePath(std::string(85, 'd'), "name", ".sock"), "");
}

TEST_F(XPCEndpointTest, NameHasOneOwner) {
    ::umask(0);
    auto owner = XPCEndpoint::listen(kService);
    ASSERT_NE(owner, nullptr);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms{0600});
    EXPECT_EQ(start(), EADDRINUSE);
    EXPECT_EQ(statusOf(inChild(start)), EADDRINUSE);
    const port::UniqueFd client = port::xpcConnect(kService);
    const port::UniqueFd peer(::accept4(owner->socket(), nullptr, nullptr, SOCK_CLOEXEC));
    pid_t pid = 0;
    EXPECT_TRUE(peer && port::xpcPeerIsOurs(peer.get(), pid));
    EXPECT_EQ(pid, ::getpid());
    owner.reset();
    EXPECT_FALSE(port::xpcConnect(kService));
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(statusOf(inChild(start)), 0) << "a dead owner's socket is replaced";
}

TEST_F(XPCEndpointTest, WhatIsNotOursIsNotTaken) {
    auto owner = XPCEndpoint::listen(kService);
    fs::remove(path);
    EXPECT_EQ(start(), EADDRINUSE) << "the lock alone holds the name";
    port::UniqueFd other = bindByHand(true);
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

// All start at once over the socket of a dead owner; the losers say that the name is taken. The winner holds
// on until all the others have given up.
TEST_F(XPCEndpointTest, FiftyStartsOverAStaleSocketGiveOneOwner) {
    bindByHand(false).reset();
    int gate[2];
    int hold[2];
    ASSERT_EQ(::pipe(gate) | ::pipe(hold), 0);
    for (int i = 0; i < 50; ++i)
        inChild([&] {
            char byte = 0;
            ::close(gate[1]);
            ::close(hold[1]);
            if (::read(gate[0], &byte, 1) != 0)
                return 3;
            const auto endpoint = XPCEndpoint::listen(kService);
            if (endpoint == nullptr)
                return errno == EADDRINUSE ? 1 : 2;
            return ::read(hold[0], &byte, 1) == 0 ? 0 : 3;
        });
    ::close(gate[1]);
    for (int left = 50; left > 1; --left)
        EXPECT_EQ(statusOf(-1), 1);
    EXPECT_TRUE(port::xpcConnect(kService));
    ::close(hold[1]);
    EXPECT_EQ(statusOf(-1), 0);
    ::close(gate[0]);
    ::close(hold[0]);
}

TEST_F(XPCEndpointTest, UsesTheSocketThatAServiceManagerHandsOver) {
    const struct {
        const char* name;
        const char* count;
        const char* names; // null: none
        int pidOffset;
        bool listening;
        bool used;
    } rows[] = {
        {"named", "1", kService, 0, true, true},
        {"named after the unit", "1", "com.example.service.socket", 0, true, true},
        {"unnamed", "1", nullptr, 0, true, true},
        {"second name", "1", "other:com.example.service", 0, true, false},
        {"another's process id", "1", kService, 1, true, false},
        {"not listening", "1", kService, 0, false, false},
        {"none", "0", kService, 0, true, false},
        {"not a number", "1x", kService, 0, true, false},
    };
    for (const auto& row : rows) {
        fs::remove_all(folder);
        const int status = statusOf(inChild([&] {
            const port::UniqueFd handed = bindByHand(row.listening);
            ::dup2(handed.get(), 3);
            ::setenv("LISTEN_PID", std::to_string(::getpid() + row.pidOffset).c_str(), 1);
            ::setenv("LISTEN_FDS", row.count, 1);
            if (row.names != nullptr)
                ::setenv("LISTEN_FDNAMES", row.names, 1);
            const auto endpoint = XPCEndpoint::listen(kService);
            if (endpoint == nullptr || endpoint->socket() != 3)
                return 0;
            endpoint->unlinkOwn();
            return ::fcntl(3, F_GETFD) == FD_CLOEXEC && fs::exists(path) ? 1 : 2;
        }));
        EXPECT_EQ(status, row.used ? 1 : 0) << row.name;
    }
}

} // namespace
