// Peers that flood, stall, never read or die, and services that lie: the others are served all the same.
#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

#include "xpc/HostFixture.h"
#include "xpc/XPCLimits.h"
#include "xpc/hostile/RawPeer.h"

namespace {

using port::XPCFrameKind;

class HostilePeers : public HostFixture {
protected:
    RawPeer Peer() { return RawPeer(SocketPath(place.Path(), Service)); }
    // The slowest of some answers, in milliseconds; -1 when one did not come.
    long SlowestAnswer(int count) {
        long slowest = 0;
        for (int n = 0; n < count; n++) {
            const long start = NowMilliseconds();
            if (Ask({TextItem("TEXT", "x")}).rfind("reply", 0) != 0)
                return -1;
            slowest = std::max(slowest, NowMilliseconds() - start);
        }
        return slowest;
    }
};

TEST_F(HostilePeers, AFloodDelaysNobody) {
    std::string flood;
    for (int n = 0; n < 200; n++)
        flood += RawFrame().AddText("TEXT", std::string(80, 'f')).Bytes();
    std::atomic<bool> stop = false;
    std::thread flooder([&] {
        RawPeer peer = Peer();
        while (!stop && peer.Send(flood)) {
        }
    });
    Serve(100);
    const long slowest = SlowestAnswer(50);
    stop = true;
    flooder.join();
    EXPECT_GE(slowest, 0);
    EXPECT_LT(slowest, 100);
}

TEST_F(HostilePeers, APeerThatNeverReadsIsDropped) {
    const std::string request =
        RawFrame(XPCFrameKind::MessageWantsReply, 1).AddText("TEXT", std::string(200000, 'n')).Bytes();
    std::atomic<int> sent = 0;
    std::atomic<bool> dropped = false;
    std::thread mute([&] {
        RawPeer peer = Peer();
        while (sent < 2000 && !dropped) {
            dropped = !peer.Send(request);
            sent++;
        }
    });
    long slowest = 0;
    while (sent < 2000 && !dropped)
        slowest = std::max(slowest, SlowestAnswer(1));
    mute.join();
    EXPECT_TRUE(dropped);
    EXPECT_GE(sent * 200000L, static_cast<long>(port::kSendQueueBytes)) << "dropped before the bound";
    EXPECT_LT(slowest, 100);
}

TEST_F(HostilePeers, AStalledFrameMeetsItsDeadline) {
    const std::string frame = RawFrame().AddText("TEXT", "never whole").Bytes();
    RawPeer early = Peer();
    RawPeer late = Peer();
    RawPeer silent = Peer();
    early.Send(frame.substr(0, 5));
    late.Send(frame + frame.substr(0, frame.size() - 1));
    const long deadline = port::kFrameDeadline.count();
    const long start = NowMilliseconds();
    EXPECT_FALSE(early.IsClosedWithin(static_cast<int>(deadline) - 500));
    EXPECT_GE(SlowestAnswer(1), 0);
    EXPECT_TRUE(early.IsClosedWithin(2000));
    EXPECT_TRUE(late.IsClosedWithin(2000));
    EXPECT_GE(NowMilliseconds() - start, deadline - 500);
    EXPECT_FALSE(silent.IsClosedWithin(100)) << "a peer between frames may be silent";
}

TEST_F(HostilePeers, ConnectionsAreBounded) {
    SlowestAnswer(1);
    std::vector<RawPeer> peers;
    for (std::size_t n = 0; n < port::kMaxConnections - 1; n++)
        peers.push_back(Peer());
    RawPeer last = std::move(peers.back());
    last.Send(RawFrame(XPCFrameKind::MessageWantsReply, 1).AddText("TEXT", "x").Bytes());
    EXPECT_EQ(last.Read().header.replyId, 1u) << "at the limit";
    RawPeer refused = Peer();
    EXPECT_TRUE(refused.IsClosedWithin(2000)) << "one past the limit";
    EXPECT_GE(SlowestAnswer(5), 0);
    peers.clear();
    EXPECT_TRUE(WaitFor([&] {
        RawPeer again = Peer();
        again.Send(RawFrame(XPCFrameKind::MessageWantsReply, 2).AddText("TEXT", "x").Bytes());
        return again.Read(200).header.replyId == 2;
    }));
}

TEST_F(HostilePeers, PeersThatDieAndRepliesThatNobodyAskedFor) {
    for (int n = 0; n < 200; n++) {
        RawPeer peer = Peer();
        for (int more = 0; more < 5; more++)
            peer.Send(RawFrame(XPCFrameKind::MessageWantsReply, 9).AddNumber("PUSH", 20).Bytes());
        peer.Send(
            RawFrame(XPCFrameKind::Reply, static_cast<std::uint64_t>(n) + 1).AddText("TEXT", "x").Bytes());
    }
    EXPECT_GE(SlowestAnswer(10), 0);
}

TEST_F(HostilePeers, ABurstArrivesInOrder) {
    constexpr long count = 10000;
    Send({Item("PUSH", LXPCDataTypeInt64, count)}, false);
    ASSERT_TRUE(WaitFor([&] { return sink.Count("message") == count; }));
    long expected = 0;
    std::vector<std::string> lines = sink.Lines();
    std::erase(lines, "sent");
    for (const std::string& line : lines)
        ASSERT_EQ(line, "message PUSHED=" + std::to_string(++expected));
}

TEST_F(HostilePeers, AKilledServiceInterruptsOnceAndIsReachedAgain) {
    SlowestAnswer(1);
    host->Kill(SIGKILL);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("error") == 1; }));
    Serve(100);
    EXPECT_EQ(sink.Lines().back(), "error 2");
    EXPECT_EQ(sink.Count("error"), 1u);
    StartHost();
    EXPECT_GE(SlowestAnswer(3), 0);
    host->Kill(SIGTERM);
    EXPECT_NE(host->Wait(1000), -1);
}

// A service that lies to its client: this test holds the socket.
class HostileService : public HostFixture {
protected:
    void SetUp() override {
        const std::string folder = place.Path() + "/port-xpc";
        mkdir(folder.c_str(), 0700);
        listener.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        SocketPath(place.Path(), Service).copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(listener.get(), 10), 0);
        client = std::make_unique<LXPCClient>(&sink);
        DeclareHostReplies(*client);
        ASSERT_TRUE(client->Connect(Service, 1, true));
    }
    RawPeer Accept() {
        return RawPeer(port::UniqueFd(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC)));
    }
    port::UniqueFd listener;
};

TEST_F(HostileService, RepliesAreTakenOnce) {
    Send({TextItem("TEXT", "a")}, true);
    RawPeer server = Accept();
    const std::uint64_t id = server.Read().header.replyId;
    const std::string reply = RawFrame(XPCFrameKind::Reply, id).AddText("TEXT", "r").Bytes();
    server.Send(RawFrame(XPCFrameKind::Reply, id + 1000).AddText("TEXT", "unasked").Bytes() + reply + reply);
    EXPECT_TRUE(WaitFor([&] { return sink.Count("reply") == 1; }));
    Serve(100);
    EXPECT_EQ(sink.Count("reply"), 1u);
}

TEST_F(HostileService, EachOpenReplyHandlerHearsOfTheEnd) {
    const struct {
        const char* end;
        std::string bytes;
    } rows[] = {
        {"dies", ""}, {"garbage", std::string(100, 'g')}, {"half a reply", RawFrame().Bytes().substr(0, 9)}};
    for (const auto& row : rows) {
        const std::size_t before = sink.Lines().size();
        for (int n = 0; n < 3; n++)
            Send({TextItem("TEXT", "a")}, true);
        RawPeer server = Accept();
        server.Read();
        server.Send(row.bytes);
        server.Close();
        // One for each handler, one for the connection.
        EXPECT_TRUE(WaitFor([&] { return sink.Lines().size() == before + 4; })) << row.end;
        Serve(50);
        EXPECT_EQ(sink.Lines().size(), before + 4) << row.end;
    }
    EXPECT_EQ(sink.Count("error 2"), sink.Lines().size());
}

TEST_F(HostileService, NothingIsCalledAfterDisconnect) {
    Send({TextItem("TEXT", "a")}, true);
    RawPeer server = Accept();
    const std::uint64_t id = server.Read().header.replyId;
    client->Disconnect(Service, 1);
    server.Send(RawFrame(XPCFrameKind::Reply, id).AddText("TEXT", "late").Bytes() +
                RawFrame().AddNumber("PUSHED", 1).Bytes());
    EXPECT_TRUE(server.IsClosedWithin(2000));
    Serve(50);
    // The reply handler and the connection hear "invalid", nothing else.
    EXPECT_EQ(sink.Lines(), (std::vector<std::string>{"error 1", "error 1"}));
}

} // namespace
