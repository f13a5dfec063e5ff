// Peers that flood, stall, never read or die, and services that lie: the others are served all the same, and
// a process ends when it wants to.
#include <atomic>
#include <cstdlib>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

#include "xpc/HostFixture.h"
#include "xpc/XPCLimits.h"
#include "xpc/hostile/RawPeer.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kPatience = 2000; // milliseconds: sanitizers slow the host down
#else
constexpr long kPatience = 100;
#endif

class HostilePeers : public HostFixture {
protected:
    RawPeer Peer() { return {place.Path(), Service}; }
    // The slowest of some answers, in milliseconds.
    long SlowestAnswer(int count) {
        long slowest = 0;
        for (int n = 0; n < count; n++) {
            const long start = NowMilliseconds();
            EXPECT_EQ(Ask({TextItem("TEXT", "x")}).rfind("reply", 0), 0u);
            slowest = std::max(slowest, NowMilliseconds() - start);
        }
        return slowest;
    }
};

TEST_F(HostilePeers, AFloodDelaysNobody) {
    const std::string text(80, 'f');
    std::string flood;
    for (int n = 0; n < 200; n++)
        flood += RawFrame({TextItem("TEXT", text.c_str())}).Bytes();
    std::atomic<bool> stop = false;
    std::thread flooder([&] {
        RawPeer peer = Peer();
        while (!stop && peer.Send(flood)) {
        }
    });
    Serve(100);
    EXPECT_LT(SlowestAnswer(50), kPatience);
    stop = true;
    flooder.join();
}

TEST_F(HostilePeers, APeerThatNeverReadsIsDropped) {
    const std::string text(200000, 'n');
    const std::string request = RawFrame({TextItem("TEXT", text.c_str())}, 1).Bytes();
    std::atomic<long> sent = 0;
    std::atomic<bool> dropped = false;
    std::thread mute([&] {
        RawPeer peer = Peer();
        for (; sent < 2000 && !dropped; sent++)
            dropped = !peer.Send(request);
    });
    while (sent < 2000 && !dropped)
        EXPECT_LT(SlowestAnswer(1), kPatience);
    mute.join();
    EXPECT_TRUE(dropped);
    EXPECT_GE(static_cast<std::size_t>(sent) * text.size(), port::kSendQueueBytes) << "before the bound";
}

TEST_F(HostilePeers, AStalledFrameMeetsItsDeadline) {
    const std::string text(20000, 't');
    const std::string frame = RawFrame({TextItem("TEXT", text.c_str())}).Bytes();
    RawPeer early = Peer();
    RawPeer late = Peer();
    RawPeer silent = Peer();
    early.Send(frame.substr(0, 5));
    late.Send(frame + frame.substr(0, frame.size() - 1));
    silent.Send(frame);
    EXPECT_FALSE(early.IsClosedWithin(static_cast<int>(port::kFrameDeadline.count()) - 500));
    EXPECT_FALSE(late.IsClosedWithin(1));
    EXPECT_TRUE(early.IsClosedWithin(2000));
    EXPECT_TRUE(late.IsClosedWithin(2000));
    EXPECT_FALSE(silent.IsClosedWithin(100)) << "a peer between frames may be silent";
}

TEST_F(HostilePeers, ConnectionsAreBounded) {
    SlowestAnswer(1);
    std::vector<RawPeer> peers;
    for (std::size_t n = 0; n < port::kMaxConnections - 1; n++)
        peers.push_back(Peer());
    const std::string request = RawFrame({TextItem("TEXT", "x")}, 7).Bytes();
    peers.back().Send(request);
    EXPECT_EQ(peers.back().ReadReplyId(), 7u) << "at the limit";
    EXPECT_TRUE(Peer().IsClosedWithin(2000)) << "one past the limit";
    EXPECT_LT(SlowestAnswer(5), kPatience);
    peers.clear();
    EXPECT_TRUE(WaitFor([&] {
        RawPeer again = Peer();
        return again.Send(request) && again.ReadReplyId(200) == 7;
    }));
}

TEST_F(HostilePeers, PeersThatDieAndRepliesThatNobodyAskedFor) {
    for (std::uint64_t n = 1; n <= 200; n++) {
        RawPeer peer = Peer();
        RawFrame reply({TextItem("TEXT", "x")}, n);
        reply.header.kind = port::XPCFrameKind::Reply;
        for (int more = 0; more < 5; more++)
            peer.Send(RawFrame({Item("PUSH", LXPCDataTypeInt64, 20)}, 9).Bytes() + reply.Bytes());
    }
    EXPECT_LT(SlowestAnswer(10), kPatience);
}

// A service that lies to its client: this test holds the socket.
class HostileService : public HostFixture {};

TEST_F(HostileService, ALyingServiceIsHeardOnceForEachQuestion) {
    host.reset();
    client->Disconnect(Service, 1);
    ASSERT_TRUE(WaitFor([&] { return sink.Count("error 1") == 1; }));
    unlink(SocketPath(place.Path(), Service).c_str());
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    SocketPath(place.Path(), Service).copy(address.sun_path, sizeof address.sun_path - 1);
    const port::UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.get(), 10), 0);
    ASSERT_TRUE(client->Connect(Service, 1, true));
    const struct {
        const char* what;
        int honest; // replies, each sent twice, with one that nobody asked for
        std::string last;
    } rows[] = {{"dies", 0, ""},
                {"garbage", 1, std::string(100, 'g')},
                {"half a reply", 2, RawFrame().Bytes().substr(0, 9)}};
    for (const auto& row : rows) {
        const std::size_t before = sink.Lines().size();
        const std::size_t replies = sink.Count("reply") + static_cast<std::size_t>(row.honest);
        for (int n = 0; n < 3; n++)
            Send({TextItem("TEXT", "question")}, true);
        RawPeer server(port::UniqueFd(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC)));
        for (int n = 0; n < row.honest; n++) {
            RawFrame reply({TextItem("TEXT", "r")}, server.ReadReplyId());
            reply.header.kind = port::XPCFrameKind::Reply;
            server.Send(reply.Bytes() + reply.Bytes());
            reply.header.replyId += 1000;
            server.Send(reply.Bytes());
        }
        EXPECT_TRUE(WaitFor([&] { return sink.Count("reply") == replies; })) << row.what;
        server.Send(row.last);
        server.Close();
        // Three handlers, and the connection's own error.
        EXPECT_TRUE(WaitFor([&] { return sink.Lines().size() >= before + 4; })) << row.what;
        Serve(50);
        EXPECT_EQ(sink.Lines().size(), before + 4) << row.what;
        EXPECT_EQ(sink.Count("reply"), replies) << row.what;
    }
}

// Many peers send without pause while handlers end the process, several at once.
TEST(HostileShutdown, ExitInTheMiddleOfTraffic) {
    const int rounds = getenv("LFOUNDATION_TORTURE") != nullptr ? 1000 : 20;
    constexpr int peerCount = 100;
    const std::string traffic =
        RawFrame({TextItem("TEXT", "traffic"), Item("PUSH", LXPCDataTypeInt64, 3)}, 1).Bytes();
    const std::string quit = RawFrame({Item("QUIT", LXPCDataTypeBool, 1)}).Bytes();
    const PrivatePlace place;
    for (int round = 0; round < rounds; round++) {
        ChildProcess host({HostPath("xpc_host"), "Test.Service"});
        ASSERT_EQ(host.ReadLine(), "ready") << "round " << round;
        std::vector<RawPeer> peers;
        for (int n = 0; n < peerCount; n++)
            peers.emplace_back(place.Path(), "Test.Service");
        for (int turn = 0; turn < 5; turn++)
            for (int n = 0; n < peerCount; n++) {
                const bool last = turn == round % 5 && n >= peerCount - 1 - round % 3;
                peers[static_cast<std::size_t>(n)].Send(last ? quit : traffic);
            }
        ASSERT_EQ(host.Wait(), 0) << "round " << round;
    }
}

} // namespace
