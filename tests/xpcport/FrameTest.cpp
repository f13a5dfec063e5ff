#include "FrameSupport.h"

#include "bsd/SystemCalls.h"

#include <fcntl.h>
#include <random>
#include <sys/mman.h>

namespace {

using port::XPCEntryHeader;
using port::XPCFrameHeader;

constexpr std::size_t kFlag = sizeof(XPCFrameHeader); // where the entries of the sample lie
constexpr std::size_t kText = kFlag + 24;
constexpr std::size_t kData = kText + 24;

std::string sample() {
    const Dictionary dictionary = port::XPCDictionary::create();
    xpc_dictionary_set_bool(dictionary.get(), "flag", true);
    xpc_dictionary_set_string(dictionary.get(), "text", "hello");
    xpc_dictionary_set_data(dictionary.get(), "data", "12345678", 8);
    return frameBytes(*dictionary);
}

// The lies that only a close look finds; the coarse ones are told to a real service elsewhere.
TEST(XPCFrame, MalformedOnesAreRefused) {
    const struct {
        const char* name;
        std::size_t offset;
        std::size_t width;
        std::uint64_t value;
        bool sound = false;
    } rows[] = {
        {"kind below", 5, 1, 0},
        {"flags", 6, 2, 1},
        {"no reply id of a request", 5, 1, 2},
        {"body not a multiple of 8", 16, 4, 68},
        {"body one entry short", 16, 4, 48},
        {"attached announced", 24, 8, 300000},
        {"no type", kFlag, 1, 0},
        {"attached neither", kText + 1, 1, 2},
        {"attached scalar", kFlag + 1, 1, 1},
        {"key longer", kFlag + 2, 2, 5},
        {"key with a terminator inside", kFlag + 9, 1, 0},
        {"bool of 7 bytes", kFlag + 4, 4, 7},
        {"bool neither", kFlag + 16, 8, 2},
        {"string of no bytes", kText + 4, 4, 0},
        {"data past the body", kData + 4, 4, 9},
        {"a key twice: the first counts", kData + 8, 4, 0x74786574, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string frame = sample();
        std::memcpy(&frame[row.offset], &row.value, row.width);
        Pipe pipe;
        pipe.put(sample() + frame);
        EXPECT_EQ(pipe.drain(), row.sound ? XPCReadResult::WouldBlock : XPCReadResult::Refused);
        ASSERT_EQ(pipe.frames.size(), row.sound ? 2U : 1U);
        EXPECT_STREQ(xpc_dictionary_get_string(pipe.frames.back().get(), "text"), "hello");
    }
}

// What no sender of ours can make: the last that is taken, and one more.
TEST(XPCFrame, LimitsHoldForWhatArrives) {
    for (const auto& [keys, keyBytes, valueBytes] : {std::array{port::kMaxKeys, 1UL, 0UL},
                                                     {1UL, port::kMaxKeyBytes, 0UL},
                                                     {1UL, 1UL, port::kMaxInlineValueBytes}}) {
        for (const std::size_t past : {0U, 1U}) {
            const auto one = [past](std::size_t limit) { return limit > 1 ? limit + past : limit; };
            const XPCEntryHeader entry{port::XPCTag::Data, 0, static_cast<std::uint16_t>(one(keyBytes)),
                                       static_cast<std::uint32_t>(one(valueBytes))};
            std::string bytes(reinterpret_cast<const char*>(&entry), sizeof entry);
            bytes.append(entry.keyBytes, 'k').resize(entry.totalBytes());
            std::string body;
            for (std::size_t i = 0; i < one(keys); ++i)
                body += bytes;
            XPCFrameHeader header;
            header.bodyBytes = static_cast<std::uint32_t>(body.size());
            header.keyCount = static_cast<std::uint16_t>(one(keys));
            EXPECT_EQ(header.isValid() && bodyIsValid(header, std::as_bytes(std::span(body))), past == 0)
                << one(keys) << " keys of " << one(keyBytes) << ", " << one(valueBytes) << " bytes";
        }
    }
}

TEST(XPCFrame, ArrivesWhereverItIsCut) {
    const std::string frame = sample();
    const std::string stream = frame + frame;
    for (std::size_t cut = 1; cut < stream.size(); ++cut) {
        SCOPED_TRACE(cut);
        Pipe pipe;
        pipe.put(stream.substr(0, cut));
        ASSERT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
        EXPECT_EQ(pipe.reader.isInsideFrame(), cut != frame.size());
        pipe.put(stream.substr(cut));
        ASSERT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
        ASSERT_EQ(pipe.frames.size(), 2U);
        for (const Dictionary& arrived : pipe.frames)
            EXPECT_EQ(frameBytes(*arrived), frame);
        pipe.put(stream.substr(0, cut));
        pipe.sender.reset();
        EXPECT_EQ(pipe.drain(), XPCReadResult::Closed);
        EXPECT_FALSE(pipe.reader.isInsideFrame());
    }
}

// Whatever happens to the bytes, the frames that do arrive hold together and no descriptor stays.
TEST(XPCFrame, FlippedAndTruncatedStreamsDoNoHarm) {
    const int before = CountDescriptors(getpid());
    std::mt19937 random(7);
    int refused = 0;
    for (int round = 0; round < 4000; ++round) {
        std::string stream = sample() + sample();
        for (unsigned flips = 1 + random() % 4; flips != 0; --flips)
            stream[random() % stream.size()] ^= static_cast<char>(1 << random() % 8);
        stream.resize(1 + random() % stream.size());
        Pipe pipe;
        pipe.put(stream, random() % 8 == 0 ? random() % 20 : 0);
        refused += pipe.drain() == XPCReadResult::Refused;
        for (const Dictionary& arrived : pipe.frames)
            EXPECT_TRUE(port::bodyIsValid(arrived->header(), arrived->body()));
    }
    EXPECT_GT(refused, 1000);
    EXPECT_EQ(CountDescriptors(getpid()), before);
}

TEST(XPCFrame, DescriptorsBelongToTheFrameThatAnnouncesThem) {
    const Dictionary owner = port::XPCDictionary::create();
    xpc_dictionary_set_fd(owner.get(), "fd", STDIN_FILENO);
    const std::string frame = frameBytes(*owner);
    std::string hidden = frame;
    hidden[20] = 0; // the announced count
    const struct {
        const char* name;
        std::string bytes;
        std::size_t descriptors;
        XPCReadResult result;
        std::size_t frames;
    } rows[] = {
        {"exactly", frame, 1, XPCReadResult::WouldBlock, 1},
        {"in the body only", hidden, 0, XPCReadResult::Refused, 0},
        {"none", frame, 0, XPCReadResult::Refused, 0},
        {"one too many", frame, 2, XPCReadResult::Refused, 1},
        {"unannounced", sample(), 1, XPCReadResult::Refused, 1},
        {"unannounced, body cut", sample().substr(0, 40), 1, XPCReadResult::Refused, 0},
        {"header cut, at the limit", frame.substr(0, 20), 16, XPCReadResult::WouldBlock, 0},
        {"more than a message may bring", frame.substr(0, 20), 17, XPCReadResult::Refused, 0},
    };
    const int before = CountDescriptors(getpid());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Pipe pipe;
        pipe.put(row.bytes, row.descriptors);
        EXPECT_EQ(pipe.drain(), row.result);
        EXPECT_EQ(pipe.frames.size(), row.frames);
    }
    EXPECT_EQ(CountDescriptors(getpid()), before);
}

TEST(XPCFrame, AttachedValueMustBeSealedAndOfItsSize) {
    const std::string large(port::kMaxInlineValueBytes + 1, 'L');
    const Dictionary owner = port::XPCDictionary::create();
    xpc_dictionary_set_data(owner.get(), "large", large.data(), large.size());
    constexpr int kAll = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    for (const auto& [missing, extra] :
         {std::pair(0, 0), {F_SEAL_WRITE, 0}, {F_SEAL_SHRINK, 0}, {F_SEAL_GROW, 0}, {0, 1}, {0, -1}}) {
        const port::UniqueFd file(::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        ASSERT_EQ(::ftruncate(file.get(), static_cast<off_t>(large.size()) + extra), 0);
        ASSERT_EQ(::fcntl(file.get(), F_ADD_SEALS, kAll & ~missing), 0);
        Pipe pipe;
        pipe.put(frameBytes(*owner), 1, file.get());
        EXPECT_EQ(pipe.drain() == XPCReadResult::WouldBlock, missing == 0 && extra == 0)
            << "missing seals " << missing << ", longer by " << extra;
    }
    Pipe pipe;
    pipe.put(frameBytes(*owner), 1);
    EXPECT_EQ(pipe.drain(), XPCReadResult::Refused) << "not a memory file";
}

// Frames of every size with and without descriptors, barriers between them, through calls that take and give
// only pieces: all arrive in order, and a barrier is reached once the frames before it are handed over.
TEST(XPCFrameWriter, KeepsOrderThroughShortCalls) {
    static std::mt19937 random(99);
    const int before = CountDescriptors(getpid());
    for (int round = 0; round < 10; ++round) {
        Pipe pipe;
        port::XPCFrameWriter writer;
        std::vector<dispatch_block_t> reached;
        std::size_t barriers = 0;
        std::size_t ran = 0;
        for (std::uint64_t i = 1; i <= 150; ++i) {
            const Dictionary frame = port::XPCDictionary::create();
            const std::string filler(random() % 8 == 0 ? random() % 200000 : random() % 100, 'f');
            xpc_dictionary_set_data(frame.get(), "filler", filler.data(), filler.size());
            if (random() % 4 == 0)
                xpc_dictionary_set_fd(frame.get(), "fd", STDIN_FILENO);
            ASSERT_TRUE(writer.enqueue(*frame, port::XPCFrameKind::MessageWantsReply, i));
            if (random() % 3 == 0)
                writer.enqueueBarrier([&, i, n = barriers++] {
                    EXPECT_GE(pipe.frames.size(), i);
                    EXPECT_EQ(ran++, n);
                });
        }
        port::sys::setHook([](port::sys::Call) {
            return port::sys::Verdict{0, random() % 2 == 0 ? ~std::size_t{0} : random() % 5000};
        });
        auto state = port::XPCWriteResult::Blocked;
        while (state == port::XPCWriteResult::Blocked) {
            state = writer.flush(pipe.sender.get(), reached);
            ASSERT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
            while (ran < reached.size())
                reached[ran]();
        }
        port::sys::setHook(nullptr);
        EXPECT_EQ(ran, barriers);
        ASSERT_EQ(pipe.frames.size(), 150U);
        for (std::uint64_t i = 1; i <= 150; ++i)
            EXPECT_EQ(pipe.frames[i - 1]->replyId(), i);
    }
    EXPECT_EQ(CountDescriptors(getpid()), before);
}

TEST(XPCFrameWriter, PeerThatNeverReadsFillsABoundedQueue) {
    port::XPCFrameWriter writer;
    const Dictionary frame = port::XPCDictionary::create();
    const std::string filler(port::kMaxInlineValueBytes, 'f');
    xpc_dictionary_set_data(frame.get(), "filler", filler.data(), filler.size());
    std::size_t taken = 0;
    while (writer.enqueue(*frame, port::XPCFrameKind::Message, 0))
        ++taken;
    EXPECT_EQ(taken, port::kSendQueueBytes / filler.size() - 1);
    EXPECT_EQ(writer.send(-1, *frame, port::XPCFrameKind::Message, 0), port::XPCWriteResult::Failed);
}

} // namespace
