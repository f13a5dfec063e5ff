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

class HostileFrames : public HostFixture {
protected:
    RawPeer Peer() { return {place.Path(), Service}; }
    // The host answers, and has had that many messages.
    void ExpectMessages(int count) {
        const std::string answer = Ask({TextItem("TEXT", "alive")});
        EXPECT_EQ(answer.rfind("reply NAMES=TEXT TEXT=alive MESSAGES=" + std::to_string(count) + " ", 0), 0u)
            << answer;
    }
    static RawFrame Hello(std::uint64_t replyId = 0) {
        return RawFrame({TextItem("TEXT", "hello")}, replyId);
    }
    long HostMemory() const {
        std::ifstream status("/proc/" + std::to_string(host->Pid()) + "/status");
        for (std::string line; std::getline(status, line);)
            if (line.rfind("VmRSS:", 0) == 0)
                return std::stol(line.substr(6));
        return -1;
    }
};

TEST_F(HostileFrames, EachLieEndsItsConnectionOnly) {
    // Offsets into the body: 0 type, 1 attached, 2 key length, 4 value length, 8 "TEXT", 16 "hello".
    const struct {
        const char* lie;
        void (*tell)(RawFrame&);
    } rows[] = {
        {"magic", [](RawFrame& f) { f.header.magic ^= 1; }},
        {"version", [](RawFrame& f) { f.header.version++; }},
        {"kind", [](RawFrame& f) { f.header.kind = port::XPCFrameKind{4}; }},
        {"reply id without wish", [](RawFrame& f) { f.header.replyId = 1; }},
        {"body past the limit", [](RawFrame& f) { f.header.bodyBytes = 1 << 20; }},
        {"body of 4 GiB", [](RawFrame& f) { f.header.bodyBytes = 0xFFFFFFF8; }},
        {"too many keys", [](RawFrame& f) { f.header.keyCount = 1025; }},
        {"one key too few", [](RawFrame& f) { f.header.keyCount = 2; }},
        {"descriptor that does not come", [](RawFrame& f) { f.header.descriptorCount = 1; }},
        {"attached past the limit", [](RawFrame& f) { f.header.attachedBytes = ~std::uint64_t{0}; }},
        {"type", [](RawFrame& f) { f.body[0] = 10; }},
        {"attached", [](RawFrame& f) { f.body[1] = 1; }},
        {"key past the body", [](RawFrame& f) { f.body[3] = 0x7f; }},
        {"key without end", [](RawFrame& f) { f.body[12] = 'x'; }},
        {"value of 4 GiB", [](RawFrame& f) { memset(f.body.data() + 4, -1, 4); }},
        {"text without end", [](RawFrame& f) { f.body[4] = 5; }},
    };
    ExpectMessages(1);
    const int before = CountDescriptors(host->Pid());
    for (const auto& row : rows) {
        RawFrame frame = Hello();
        row.tell(frame);
        RawPeer peer = Peer();
        peer.Send(frame.Bytes() + std::string(64, 'x'));
        EXPECT_TRUE(peer.IsClosedWithin(2000)) << row.lie;
    }
    ExpectMessages(2);
    EXPECT_TRUE(WaitFor([&] { return CountDescriptors(host->Pid()) == before; }));
}

TEST_F(HostileFrames, GarbageTruncationAndFlippedBits) {
    std::mt19937 random(20120);
    const std::string sound = Hello().Bytes();
    for (int round = 0; round < 600; round++) {
        std::string bytes = sound;
        if (round % 3 == 0)
            bytes.resize(random() % bytes.size());
        else if (round % 3 == 1)
            for (char& byte : bytes)
                byte = static_cast<char>(random());
        else // one bit of the header, for none of which this frame is still sound
            bytes[random() % 32] ^= static_cast<char>(1 << random() % 8);
        Peer().Send(bytes);
    }
    ExpectMessages(1);
    for (int round = 0; round < 300; round++) {
        std::string bytes = sound;
        bytes[32 + random() % (bytes.size() - 32)] ^= static_cast<char>(1 << random() % 8);
        Peer().Send(bytes);
    }
    EXPECT_NE(Ask({TextItem("TEXT", "alive")}).find("TEXT=alive"), std::string::npos);
}

TEST_F(HostileFrames, PromisedBytesCostNothing) {
    const long before = HostMemory();
    RawFrame frame;
    frame.header.bodyBytes = (1 << 20) - 32;
    frame.header.keyCount = 1;
    std::vector<RawPeer> peers;
    for (int n = 0; n < 100; n++)
        peers.push_back(Peer());
    for (RawPeer& peer : peers)
        peer.Send(frame.Bytes());
    ExpectMessages(1);
    EXPECT_LT(HostMemory() - before, 8192) << "KiB, for a hundred promises of a MiB";
}

TEST_F(HostileFrames, DescriptorsAreClosed) {
    ExpectMessages(1);
    const int before = CountDescriptors(host->Pid());
    const port::UniqueFd someFile(open("/dev/null", O_RDONLY | O_CLOEXEC));
    for (const auto& [sent, claimed] :
         {std::pair{1, 0}, {3, 1}, {1, 3}, {16, 0}, {16, 16}, {17, 16}, {250, 9}}) {
        std::vector<LXPCData> items;
        for (int n = 0; n < claimed; n++)
            items.push_back(Item(std::to_string(n).c_str(), LXPCDataTypeFD, someFile.get()));
        const std::vector<int> descriptors(static_cast<std::size_t>(sent), someFile.get());
        const std::string frame = RawFrame(items).Bytes();
        for (const std::string& bytes : {frame, frame.substr(0, 20), std::string("garbage")})
            Peer().Send(bytes, descriptors);
        EXPECT_NE(Ask({TextItem("TEXT", "alive")}).find("TEXT=alive"), std::string::npos);
        EXPECT_TRUE(WaitFor([&] { return CountDescriptors(host->Pid()) == before; }, 3000))
            << sent << " sent, " << claimed << " claimed";
    }
}

// Another user's process, by way of a folder that has been opened to it.
TEST_F(HostileFrames, AnotherUsersPeerIsNotHeard) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    ExpectMessages(1);
    for (const std::string& opened :
         {SocketPath(place.Path(), Service), place.Path() + "/port-xpc", place.Path()})
        ASSERT_EQ(chmod(opened.c_str(), 0777), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (setresuid(65534, 65534, 65534) != 0)
            _exit(2);
        RawPeer peer = Peer();
        if (!peer.Send(""))
            _exit(3); // it could not even connect
        peer.Send(Hello(1).Bytes());
        _exit(peer.ReadReplyId(2000) == 0 && peer.IsClosedWithin(1000) ? 0 : 4);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    chmod((place.Path() + "/port-xpc").c_str(), 0700);
    ExpectMessages(2);
}

} // namespace
