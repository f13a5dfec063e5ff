// Peers that lie, speak garbage, send descriptors, flood, stall, never read or die, and services that lie: the
// others are served all the same, and a process ends when it wants to.
#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include "xpc/HostFixture.h"
#include "xpc/XPCEndpoint.h"
#include "xpc/hostile/RawPeer.h"

namespace {

using namespace std::string_literals;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long kPatience = 2000;            // milliseconds: sanitizers slow the host down
constexpr std::size_t kPromisesPerByte = 3; // and keep books on all memory, the untouched too
#else
constexpr long kPatience = 100;
constexpr std::size_t kPromisesPerByte = 25; // that may be in memory
#endif

class HostilePeers : public HostFixture {
protected:
    RawPeer Peer(bool apart = false) const {
        return RawPeer(place.Path() + "/port-xpc/" + Service + ".sock", apart);
    }

    // The host answers, and has had that many messages.
    void ExpectMessages(int count) {
        const std::string answer = Ask({text});
        EXPECT_TRUE(answer.starts_with("reply TEXT=x MESSAGES=" + std::to_string(count) + " ")) << answer;
    }
    void ExpectDescriptors(int count) {
        EXPECT_TRUE(WaitFor([&] { return CountDescriptors(host->Pid()) == count; }, 3000));
    }
    // That many answers come, each in time.
    void ExpectAnswers(int count) {
        for (int n = 0; n < count; n++) {
            const long start = NowMilliseconds();
            EXPECT_TRUE(Ask({text}).starts_with("reply"));
            EXPECT_LT(NowMilliseconds() - start, kPatience);
        }
    }
};

TEST_F(HostilePeers, EachLieEndsItsConnectionOnly) {
    constexpr std::size_t kBody = sizeof(port::XPCFrameHeader);
    const std::string honest = Frame({text});
    const struct {
        const char* lie;
        std::size_t offset;
        std::string bytes;
        std::size_t descriptors;
    } rows[] = {
        {"magic", 0, "Q", 250},
        {"reply id without wish", 8, "\1", 0},
        {"body of 4 GiB", 16, "\xF8\xFF\xFF\xFF", 3},
        {"fewer descriptors than announced", 20, "\3", 1},
        {"attached past the limit", 24, std::string(8, '\xFF'), 16},
        {"key past the body", kBody + 3, "\x7F", 0},
        {"text without end", kBody + 4, "\1", 2},
    };
    ExpectMessages(1);
    const int before = CountDescriptors(host->Pid());
    for (const auto& row : rows) {
        std::string frame = honest;
        frame.replace(row.offset, row.bytes.size(), row.bytes);
        RawPeer peer = Peer();
        peer.Send(frame + std::string(64, 'x'), row.descriptors);
        EXPECT_EQ(peer.ReadReplyId(), RawPeer::Closed) << row.lie;
    }
    RawPeer peer = Peer();
    peer.Send(Frame({text, Item("FILE", LXPCDataTypeFD, STDIN_FILENO)}, 7), 1);
    EXPECT_EQ(peer.ReadReplyId(), RawPeer::Closed) << "a descriptor that nobody takes";
    ExpectMessages(2);
    ExpectDescriptors(before);
}

TEST_F(HostilePeers, GarbageTruncationFlippedBitsAndDeath) {
    std::mt19937 random(20120);
    const std::string honest = Frame({text});
    ExpectMessages(1);
    const int before = CountDescriptors(host->Pid());
    for (unsigned round = 0; round < 600; round++) {
        std::string bytes = honest;
        if (round % 3 == 0)
            bytes.resize(random() % bytes.size());
        else if (round % 3 == 1)
            std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        else // one bit of the header, for none of which this frame is still sound
            bytes[random() % sizeof(port::XPCFrameHeader)] ^= static_cast<char>(1 << random() % 8);
        Peer().Send(bytes, round % 7);
    }
    ExpectMessages(2);
    // Gone before the answers come, after a reply that nobody has asked for.
    for (std::uint64_t round = 1; round <= 300; round++)
        Peer().Send(Frame({Push(20)}, 9) + Frame({text}, round, true));
    ExpectAnswers(10);
    ExpectDescriptors(before);
}

TEST_F(HostilePeers, ConnectionsAreBounded) {
    ExpectAnswers(1);
    std::vector<RawPeer> peers;
    for (const bool apart : {false, true}) {
        while (peers.size() < (apart ? port::kMaxConnections : port::kMaxProcessConnections) - 1)
            peers.push_back(Peer(apart));
        peers.back().Send(Frame({text}, 7));
        EXPECT_EQ(peers.back().ReadReplyId(), 7u) << "at the limit";
        EXPECT_EQ(Peer(apart).ReadReplyId(), RawPeer::Closed) << "one past the limit";
        ExpectAnswers(5);
    }
    peers.clear();
    EXPECT_TRUE(WaitFor([&] {
        RawPeer again = Peer();
        return again.Send(Frame({text}, 7)) && again.ReadReplyId(200) == 7;
    }));
}

// What a header promises is believed only as it arrives: whether the peer has sent large frames before or not.
TEST_F(HostilePeers, PromisedLengthsCostNoMemory) {
    const auto residentBytes = [&] {
        std::ifstream pages("/proc/" + std::to_string(host->Pid()) + "/statm");
        std::size_t size = 0;
        std::size_t resident = 0;
        pages >> size >> resident;
        return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    };
    const std::string filler(200000, 'h');
    const std::string honest = Frame({TextItem("TEXT", filler.c_str())});
    std::string promise = Frame({text});
    const std::uint32_t promised = port::kMaxFrameBytes - sizeof(port::XPCFrameHeader);
    promise.replace(offsetof(port::XPCFrameHeader, bodyBytes), sizeof promised,
                    reinterpret_cast<const char*>(&promised), sizeof promised);
    ExpectAnswers(5);
    Peer().Send(honest);
    ExpectAnswers(5);
    const std::size_t before = residentBytes();
    std::vector<RawPeer> peers;
    while (peers.size() < 200) {
        peers.push_back(Peer(true));
        peers.back().Send((peers.size() % 2 == 0 ? honest : "") + promise);
    }
    ExpectAnswers(5);
    const std::size_t after = residentBytes();
    EXPECT_LT(after, before + peers.size() * promised / kPromisesPerByte) << "before: " << before;
    EXPECT_EQ(peers.back().ReadReplyId(1), 0u) << "still waited for";
}

TEST_F(HostilePeers, FloodsDelayNobodyAndWhoNeverReadsIsNotRead) {
    for (const bool wantsReplies : {false, true}) {
        const std::string filler(wantsReplies ? 200000 : 80, 'f');
        const std::string frame = Frame({TextItem("TEXT", filler.c_str())}, wantsReplies ? 1 : 0);
        std::string flood;
        while (flood.size() < 20000)
            flood += frame;
        std::atomic<bool> stop = false;
        std::atomic<bool> blocked = false;
        std::atomic<std::size_t> sent = 0;
        std::thread peer([&] {
            RawPeer raw = Peer();
            const timeval patience = {3, 0};
            setsockopt(raw.socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
            for (; !stop && !blocked; sent += flood.size())
                blocked = !raw.Send(flood);
            EXPECT_EQ(raw.ReadReplyId(), wantsReplies ? 1u : 0u) << "it may still read";
        });
        WaitFor([&] { return sent > std::size_t{1} << 20; });
        for (int n = 0; n < 50 || (wantsReplies && !blocked && sent < port::kSendQueueBytes); n++)
            ExpectAnswers(1);
        stop = true;
        peer.join();
        EXPECT_EQ(blocked, wantsReplies);
    }
}

TEST_F(HostilePeers, AStalledFrameMeetsItsDeadline) {
    const std::string filler(20000, 't');
    const std::string frame = Frame({TextItem("TEXT", filler.c_str())});
    RawPeer early = Peer();
    RawPeer late = Peer();
    RawPeer silent = Peer();
    early.Send(frame.substr(0, 5));
    late.Send(frame + frame.substr(0, frame.size() - 1));
    silent.Send(frame);
    EXPECT_EQ(early.ReadReplyId(static_cast<int>(port::kFrameDeadline.count()) - 500), 0u);
    EXPECT_EQ(late.ReadReplyId(1), 0u);
    EXPECT_EQ(early.ReadReplyId(), RawPeer::Closed);
    EXPECT_EQ(late.ReadReplyId(), RawPeer::Closed);
    EXPECT_EQ(silent.ReadReplyId(100), 0u) << "a peer between frames may be silent";
}

// Another user's process, by way of a folder that has been opened to it.
TEST_F(HostilePeers, AnotherUsersPeerIsNotHeard) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    Start("1"); // nothing but the user speaks against the peer
    ExpectMessages(1);
    for (const std::string& opened : {"/port-xpc/" + std::string(Service) + ".sock", "/port-xpc"s, ""s})
        ASSERT_EQ(chmod((place.Path() + opened).c_str(), 0777), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (setresuid(65534, 65534, 65534) != 0)
            _exit(2);
        RawPeer peer = Peer();
        if (!peer.socket)
            _exit(3);
        peer.Send(Frame({text}, 1));
        _exit(peer.ReadReplyId() == RawPeer::Closed ? 0 : 4);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    ExpectMessages(2);
}

// A service that lies to its client: this test takes the name of the host that has died.
TEST_F(HostilePeers, ALyingServiceIsHeardOnceForEachQuestion) {
    ExpectMessages(1);
    host.reset();
    ASSERT_TRUE(WaitFor([&] { return sink.Count("error 2") == 1; }));
    const auto endpoint = port::XPCEndpoint::listen(Service);
    ASSERT_NE(endpoint, nullptr);
    // It dies, speaks garbage, or sends half a reply, after this many honest replies: each comes twice, with
    // one that nobody asked for.
    const std::string last[] = {"", std::string(100, 'g'), Frame({}).substr(0, 9)};
    for (std::size_t honest = 0; honest < 3; honest++) {
        const std::size_t before = sink.Lines().size();
        const std::size_t replies = sink.Count("reply") + honest;
        for (int n = 0; n < 3; n++)
            Send({text}, true);
        RawPeer service(port::UniqueFd(accept4(endpoint->socket(), nullptr, nullptr, SOCK_CLOEXEC)));
        for (std::size_t n = 0; n < honest; n++) {
            const std::uint64_t id = service.ReadReplyId();
            const std::string reply = Frame({text}, id, true);
            service.Send(reply + reply + Frame({text}, id + 1000, true));
        }
        EXPECT_TRUE(WaitFor([&] { return sink.Count("reply") == replies; })) << honest;
        service.Send(last[honest]);
        service.socket.reset();
        // Three handlers, and the connection's own error.
        WaitFor([&] { return sink.Lines().size() >= before + 4; });
        Serve(50);
        EXPECT_EQ(sink.Lines().size(), before + 4) << honest;
        EXPECT_EQ(sink.Count("reply"), replies) << honest;
    }
}

// Many peers send without pause while handlers end the process, several at once.
TEST_F(HostilePeers, ExitInTheMiddleOfTraffic) {
    const int rounds = getenv("LFOUNDATION_TORTURE") != nullptr ? 1000 : 20;
    const std::string traffic = Frame({text, Push(3)}, 1);
    const std::string quit = Frame({Item("QUIT", LXPCDataTypeInt64, 1)});
    for (int round = 0; round < rounds; round++) {
        Start();
        std::vector<RawPeer> peers;
        while (peers.size() < 30)
            peers.push_back(Peer());
        for (int turn = 0; turn < 5; turn++)
            for (int n = 0; n < 30; n++) {
                const bool last = turn == round % 5 && n >= 29 - round % 3;
                peers[static_cast<std::size_t>(n)].Send(last ? quit : traffic);
            }
        ASSERT_EQ(host->Wait(), 0) << "round " << round;
    }
}

} // namespace
