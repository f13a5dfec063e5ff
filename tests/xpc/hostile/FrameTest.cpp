// Peers that lie, speak garbage or send descriptors: their own connection ends, nothing else changes.
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>

#include "xpc/HostFixture.h"
#include "xpc/hostile/RawPeer.h"

namespace {

using port::XPCFrameKind;
using port::XPCTag;

class HostileFrames : public HostFixture {
protected:
    RawPeer Peer() { return RawPeer(SocketPath(place.Path(), Service)); }
    // The host answers, and has counted that many messages before this one.
    void ExpectAlive(const std::string& messages) {
        EXPECT_EQ(Ask({TextItem("TEXT", "alive")}), "reply NAMES=TEXT TEXT=alive MESSAGES=" + messages);
    }
    // Without the counter of confirmations, which the tests here leave alone.
    std::string Ask(const std::vector<LXPCData>& items) {
        const std::string answer = HostFixture::Ask(items);
        return answer.substr(0, answer.find(" SENT="));
    }
    RawFrame Text(XPCFrameKind kind = XPCFrameKind::Message, std::uint64_t replyId = 0) {
        return RawFrame(kind, replyId).AddText("TEXT", "hello");
    }
    long HostMemory() const {
        std::ifstream status("/proc/" + std::to_string(host->Pid()) + "/status");
        for (std::string line; std::getline(status, line);)
            if (line.rfind("VmRSS:", 0) == 0)
                return std::stol(line.substr(6));
        return -1;
    }
};

TEST_F(HostileFrames, ATruthfulRawPeerIsAnswered) {
    RawPeer peer = Peer();
    ASSERT_TRUE(peer.Send(Text(XPCFrameKind::MessageWantsReply, 77).Bytes()));
    const RawFrame reply = peer.Read();
    EXPECT_EQ(reply.header.magic, port::kFrameMagic);
    EXPECT_EQ(reply.header.kind, XPCFrameKind::Reply);
    EXPECT_EQ(reply.header.replyId, 77u);
    EXPECT_NE(reply.body.find("hello"), std::string::npos);
}

TEST_F(HostileFrames, EachLieEndsItsConnectionOnly) {
    const struct {
        const char* lie;
        void (*tell)(RawFrame&);
    } rows[] = {
        {"magic", [](RawFrame& f) { f.header.magic ^= 1; }},
        {"version", [](RawFrame& f) { f.header.version = 2; }},
        {"kind 0", [](RawFrame& f) { f.header.kind = XPCFrameKind{0}; }},
        {"kind 4", [](RawFrame& f) { f.header.kind = XPCFrameKind{4}; }},
        {"flags", [](RawFrame& f) { f.header.flags = 1; }},
        {"reply id without wish", [](RawFrame& f) { f.header.replyId = 1; }},
        {"wish without reply id", [](RawFrame& f) { f.header.kind = XPCFrameKind::MessageWantsReply; }},
        {"body past the limit", [](RawFrame& f) { f.header.bodyBytes = 1 << 20; }},
        {"body of 4 GiB", [](RawFrame& f) { f.header.bodyBytes = 0xFFFFFFF8; }},
        {"odd body", [](RawFrame& f) { f.header.bodyBytes--; }},
        {"too many keys", [](RawFrame& f) { f.header.keyCount = 1025; }},
        {"one key too few", [](RawFrame& f) { f.header.keyCount = 2; }},
        {"no keys", [](RawFrame& f) { f.header.keyCount = 0; }},
        {"descriptors that do not come", [](RawFrame& f) { f.header.descriptorCount = 1; }},
        {"too many descriptors", [](RawFrame& f) { f.header.descriptorCount = 17; }},
        {"attached bytes", [](RawFrame& f) { f.header.attachedBytes = 1; }},
        {"attached past the limit", [](RawFrame& f) { f.header.attachedBytes = ~std::uint64_t{0}; }},
        {"entry type 0", [](RawFrame& f) { f.body[0] = 0; }},
        {"entry type 10", [](RawFrame& f) { f.body[0] = 10; }},
        {"attached flag", [](RawFrame& f) { f.body[1] = 1; }},
        {"attached flag 2", [](RawFrame& f) { f.body[1] = 2; }},
        {"key past the body", [](RawFrame& f) { f.body[2] = f.body[3] = 0x7f; }},
        {"key without end", [](RawFrame& f) { f.body[12] = 'x'; }},
        {"zero inside the key", [](RawFrame& f) { f.body[9] = 0; }},
        {"value past the body", [](RawFrame& f) { f.body[7] = 0x7f; }},
        {"value of 4 GiB", [](RawFrame& f) { memset(f.body.data() + 4, -1, 4); }},
        {"text of no bytes", [](RawFrame& f) { f.body[4] = 0; }},
        {"text without end", [](RawFrame& f) { f.body[4] = 5; }},
        {"fd without descriptor", [](RawFrame& f) { f.body[0] = 9, f.body[4] = 0; }},
    };
    ExpectAlive("1");
    const int before = CountDescriptors(host->Pid());
    for (const auto& row : rows) {
        RawFrame frame = Text();
        row.tell(frame);
        RawPeer peer = Peer();
        peer.Send(frame.Bytes() + std::string(64, 'x'));
        EXPECT_TRUE(peer.IsClosedWithin(2000)) << row.lie;
    }
    ExpectAlive("2");
    EXPECT_TRUE(WaitFor([&] { return CountDescriptors(host->Pid()) == before; }));
}

TEST_F(HostileFrames, GarbageTruncationAndFlippedBits) {
    std::mt19937 random(20120);
    const std::string sound = Text().AddNumber("PUSH", 1).Add(XPCTag::Data, "BLOB", "\1\2\3").Bytes();
    ExpectAlive("1");
    for (int round = 0; round < 400; round++) {
        RawPeer peer = Peer();
        std::string bytes = sound;
        if (round % 4 == 0)
            bytes.resize(random() % bytes.size());
        else if (round % 4 == 1)
            for (char& byte : bytes)
                byte = static_cast<char>(random());
        else
            for (int flips = 1 + static_cast<int>(random() % 4); flips > 0; flips--)
                bytes[random() % 32] ^= static_cast<char>(1 << random() % 8);
        peer.Send(bytes);
    }
    // Truncated, garbled or with a false header, none of them counted, but for flips that undo each other.
    const std::string answer = Ask({TextItem("TEXT", "alive")});
    EXPECT_LT(std::stoi(answer.substr(answer.find("MESSAGES=") + 9)), 10) << answer;
    for (int round = 0; round < 400; round++) {
        RawPeer peer = Peer();
        std::string bytes = sound;
        bytes[32 + random() % (bytes.size() - 32)] ^= static_cast<char>(1 << random() % 8);
        peer.Send(bytes);
    }
    EXPECT_NE(Ask({TextItem("TEXT", "alive")}).find("TEXT=alive"), std::string::npos);
}

TEST_F(HostileFrames, PromisedBytesCostNothing) {
    const long before = HostMemory();
    std::vector<RawPeer> peers;
    for (int n = 0; n < 100; n++) {
        RawFrame frame;
        frame.header.bodyBytes = (1 << 20) - 32;
        frame.header.keyCount = 1;
        peers.push_back(Peer());
        peers.back().Send(frame.Bytes());
    }
    ExpectAlive("1");
    EXPECT_LT(HostMemory() - before, 8192) << "KiB, for a hundred promises of a MiB";
}

TEST_F(HostileFrames, DescriptorsAreClosed) {
    ExpectAlive("1");
    const int before = CountDescriptors(host->Pid());
    const struct {
        std::size_t sent;
        std::uint16_t claimed;
    } rows[] = {{1, 0}, {3, 1}, {1, 3}, {16, 0}, {16, 16}, {17, 16}, {17, 0}, {40, 3}, {250, 0}, {250, 16}};
    const port::UniqueFd someFile(open("/dev/null", O_RDONLY | O_CLOEXEC));
    for (const auto& row : rows) {
        RawFrame frame = Text();
        for (std::uint16_t n = 0; n < row.claimed; n++)
            frame.Add(XPCTag::FD, "fd" + std::to_string(n), "");
        frame.header.descriptorCount = row.claimed;
        const std::vector<int> descriptors(row.sent, someFile.get());
        for (const std::string& bytes : {frame.Bytes(), frame.Bytes().substr(0, 20), std::string("garbage")})
            Peer().Send(bytes, descriptors);
        EXPECT_NE(Ask({TextItem("TEXT", "alive")}).find("TEXT=alive"), std::string::npos) << row.sent;
        EXPECT_TRUE(WaitFor([&] { return CountDescriptors(host->Pid()) == before; }, 3000))
            << row.sent << " sent, " << row.claimed << " claimed";
    }
}

// Another user's process, by way of a folder that has been opened to it.
TEST_F(HostileFrames, AnotherUsersPeerIsNotHeard) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    ExpectAlive("1");
    const std::string path = SocketPath(place.Path(), Service);
    for (const std::string& opened : {place.Path(), place.Path() + "/port-xpc", path})
        ASSERT_EQ(chmod(opened.c_str(), 0777), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (setresuid(65534, 65534, 65534) != 0)
            _exit(2);
        RawPeer peer(path);
        if (!peer.IsConnected())
            _exit(3);
        peer.Send(Text(XPCFrameKind::MessageWantsReply, 1).Bytes());
        _exit(peer.Read(2000).header.magic == 0 && peer.IsClosedWithin(1000) ? 0 : 4);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    for (const std::string& closed : {place.Path(), place.Path() + "/port-xpc"})
        chmod(closed.c_str(), 0700);
    ExpectAlive("2");
}

} // namespace
