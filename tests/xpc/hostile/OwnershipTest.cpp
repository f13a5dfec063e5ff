// One owner for a name, in a folder that is ours alone; and processes that end in the middle of everything.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include "xpc/HostFixture.h"
#include "xpc/hostile/RawPeer.h"

namespace {

constexpr int UnavailableStatus = 69; // of the host, when the name cannot be taken

TEST(HostileFolder, ServicesRefuseAFolderThatIsNotTheirsAlone) {
    const struct {
        const char* what;
        void (*make)(const std::string& folder);
        bool serves;
    } rows[] = {
        {"missing", [](const std::string&) {}, true},
        {"ours, 0700", [](const std::string& f) { mkdir(f.c_str(), 0700); }, true},
        {"open to others", [](const std::string& f) { mkdir(f.c_str(), 0700), chmod(f.c_str(), 0711); },
         false},
        {"a link",
         [](const std::string& f) { mkdir((f + "x").c_str(), 0700), symlink("port-xpcx", f.c_str()); },
         false},
        {"a file", [](const std::string& f) { std::ofstream(f) << "x"; }, false},
        {"a folder in the socket's place",
         [](const std::string& f) {
             mkdir(f.c_str(), 0700);
             mkdir((f + "/Test.Service.sock").c_str(), 0700);
         },
         false},
        {"a file in the socket's place",
         [](const std::string& f) {
             mkdir(f.c_str(), 0700);
             std::ofstream(f + "/Test.Service.sock") << "kept";
         },
         false},
    };
    for (const auto& row : rows) {
        const PrivatePlace place;
        const std::string folder = place.Path() + "/port-xpc";
        row.make(folder);
        ChildProcess host({HostPath("xpc_host"), "Test.Service"});
        EXPECT_EQ(host.ReadLine(), row.serves ? "ready" : "") << row.what;
        struct stat info = {};
        if (row.serves) {
            EXPECT_TRUE(lstat(folder.c_str(), &info) == 0 && (info.st_mode & 07777) == 0700) << row.what;
            lstat(SocketPath(place.Path(), "Test.Service").c_str(), &info);
            EXPECT_EQ(info.st_mode, static_cast<mode_t>(S_IFSOCK | 0600)) << row.what;
        } else {
            EXPECT_EQ(host.Wait(), UnavailableStatus) << row.what;
        }
    }
}

TEST(HostileFolder, LongNamesAndSlashesMeetTheirOwnService) {
    const PrivatePlace place;
    const std::string names[] = {std::string(300, 'n') + "1", std::string(300, 'n') + "2", "../../outside/x",
                                 ".outside.x"};
    std::vector<std::unique_ptr<ChildProcess>> hosts;
    RecordingSink sink;
    LXPCClient client(&sink);
    DeclareHostReplies(client);
    for (unsigned long n = 0; n < std::size(names); n++) {
        hosts.push_back(
            std::make_unique<ChildProcess>(std::vector<std::string>{HostPath("xpc_host"), names[n]}));
        ASSERT_EQ(hosts.back()->ReadLine(), "ready") << names[n];
        ASSERT_TRUE(client.Connect(names[n].c_str(), n, true));
        const LXPCData text = TextItem("TEXT", "x");
        client.SendMessage(names[n].c_str(), n, &text, 1, true);
        ASSERT_TRUE(WaitFor([&] { return sink.Lines().size() == n + 1; }));
        EXPECT_EQ(sink.Lines().back(), "reply NAMES=TEXT TEXT=x MESSAGES=1 SENT=0") << "a service of its own";
    }
}

TEST(HostileFolder, FiftyStartsOverAStaleSocketGiveOneServer) {
    const PrivatePlace place;
    {
        ChildProcess killed({HostPath("xpc_host"), "Test.Service"});
        ASSERT_EQ(killed.ReadLine(), "ready");
        killed.Kill(SIGKILL);
        killed.Wait();
    }
    std::vector<std::unique_ptr<ChildProcess>> hosts;
    for (int n = 0; n < 50; n++)
        hosts.push_back(
            std::make_unique<ChildProcess>(std::vector<std::string>{HostPath("xpc_host"), "Test.Service"}));
    int serving = 0;
    for (const auto& host : hosts)
        if (host->ReadLine() == "ready")
            serving++;
        else
            EXPECT_EQ(host->Wait(), UnavailableStatus);
    EXPECT_EQ(serving, 1);
    RawPeer peer(SocketPath(place.Path(), "Test.Service"));
    peer.Send(RawFrame(port::XPCFrameKind::MessageWantsReply, 5).AddText("TEXT", "x").Bytes());
    EXPECT_EQ(peer.Read().header.replyId, 5u);
}

TEST(HostileFolder, AHandedOverSocketIsServed) {
    const PrivatePlace place;
    const std::string path = SocketPath(place.Path(), "Test.Service");
    mkdir((place.Path() + "/port-xpc").c_str(), 0700);
    const port::UniqueFd listener(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.get(), 5), 0);
    RawPeer early(path);
    early.Send(RawFrame(port::XPCFrameKind::MessageWantsReply, 6).AddText("TEXT", "x").Bytes());
    const std::string start = "LISTEN_PID=$$ LISTEN_FDS=1 LISTEN_FDNAMES=Test.Service exec '" +
                              HostPath("xpc_host") + "' Test.Service 3<&" + std::to_string(listener.get());
    ChildProcess host({"/bin/sh", "-c", start});
    EXPECT_EQ(host.ReadLine(), "ready");
    EXPECT_EQ(early.Read().header.replyId, 6u) << "sent before the service started";
}

// Many peers send without pause while a handler ends the process.
TEST(HostileShutdown, ExitInTheMiddleOfTraffic) {
    const int rounds = getenv("LFOUNDATION_TORTURE") != nullptr ? 1000 : 20;
    constexpr int peerCount = 100;
    const std::string traffic = RawFrame(port::XPCFrameKind::MessageWantsReply, 1)
                                    .AddText("TEXT", "traffic")
                                    .AddNumber("PUSH", 3)
                                    .Bytes();
    const std::int64_t yes = 1;
    const std::string quit =
        RawFrame().Add(port::XPCTag::Bool, "QUIT", {reinterpret_cast<const char*>(&yes), sizeof yes}).Bytes();
    const PrivatePlace place;
    for (int round = 0; round < rounds; round++) {
        ChildProcess host({HostPath("xpc_host"), "Test.Service"});
        ASSERT_EQ(host.ReadLine(), "ready") << "round " << round;
        std::vector<RawPeer> peers;
        for (int n = 0; n < peerCount; n++)
            peers.emplace_back(SocketPath(place.Path(), "Test.Service"));
        for (int turn = 0; turn < 5; turn++)
            for (int n = 0; n < peerCount; n++) {
                // The last ones of some turn say the word, several at once.
                const bool last = turn == round % 5 && n >= peerCount - 1 - round % 3;
                peers[static_cast<std::size_t>(n)].Send(last ? quit : traffic);
            }
        ASSERT_EQ(host.Wait(), 0) << "round " << round;
    }
}

} // namespace
