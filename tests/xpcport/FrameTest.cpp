#include "FrameSupport.h"

#include "bsd/SystemCalls.h"

#include <cstddef>
#include <fcntl.h>
#include <functional>
#include <random>
#include <span>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using namespace frametest;
using port::XPCEntryHeader;
using port::XPCFrameHeader;
using port::XPCReadResult;

// bool "flag" at 0 (24 bytes), string "text" at 24 (24 bytes), data "data" at 48 (24 bytes).
Dictionary sample() {
    Dictionary dictionary = makeDictionary();
    xpc_dictionary_set_bool(dictionary.get(), "flag", true);
    xpc_dictionary_set_string(dictionary.get(), "text", "hello");
    xpc_dictionary_set_data(dictionary.get(), "data", "12345678", 8);
    return dictionary;
}

template <typename T>
void poke(std::string& frame, std::size_t offset, T value) {
    std::memcpy(frame.data() + offset, &value, sizeof value);
}

TEST(XPCFrame, MalformedOnesAreRefused) {
    constexpr std::size_t kBody = sizeof(XPCFrameHeader);
    struct Row {
        const char* name;
        std::function<void(std::string&)> spoil;
    };
    const auto header = [](std::size_t offset, auto value) {
        return [=](std::string& frame) { poke(frame, offset, value); };
    };
    const auto entry = [](std::size_t offset, auto value) {
        return [=](std::string& frame) { poke(frame, kBody + offset, value); };
    };
    const Row rows[] = {
        {"magic", header(0, std::uint32_t{0x43505851})},
        {"version", header(4, std::uint8_t{2})},
        {"kind below", header(5, std::uint8_t{0})},
        {"kind above", header(5, std::uint8_t{4})},
        {"flags", header(6, std::uint16_t{1})},
        {"reply id of a message", header(8, std::uint64_t{1})},
        {"no reply id of a request", header(5, std::uint8_t{2})},
        {"body not a multiple of 8", header(16, std::uint32_t{68})},
        {"body one entry short", header(16, std::uint32_t{48})},
        {"body past the limit", header(16, std::uint32_t{port::kMaxFrameBytes - 24})},
        {"descriptors announced", header(20, std::uint16_t{1})},
        {"keys too many", header(22, std::uint16_t{4})},
        {"keys past the limit", header(22, std::uint16_t{port::kMaxKeys + 1})},
        {"attached announced", header(24, std::uint64_t{300000})},
        {"attached past the limit", header(24, std::uint64_t{1} << 40)},
        {"no type", entry(0, std::uint8_t{0})},
        {"type of no value", entry(0, std::uint8_t{10})},
        {"attached flag", entry(1, std::uint8_t{2})},
        {"attached scalar", entry(1, std::uint8_t{1})},
        {"attached small data", entry(48 + 1, std::uint8_t{1})},
        {"key longer", entry(2, std::uint16_t{5})},
        {"key past the body", entry(2, std::uint16_t{1000})},
        {"key past the limit", entry(2, std::uint16_t{0xFFFF})},
        {"key with a terminator inside", entry(8 + 1, char{0})},
        {"key without terminator", entry(8 + 4, char{'x'})},
        {"bool of 7 bytes", entry(4, std::uint32_t{7})},
        {"bool neither", entry(16, std::uint64_t{2})},
        {"string without terminator", entry(24 + 16 + 5, char{'!'})},
        {"string of no bytes", entry(24 + 4, std::uint32_t{0})},
        {"data past the body", entry(48 + 4, std::uint32_t{9})},
        {"data of 4 GiB", entry(48 + 4, std::uint32_t{0xFFFFFFFF})},
    };
    const std::string good = frameBytes(*sample());
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string frame = good;
        row.spoil(frame);
        ASSERT_NE(frame, good);
        Pipe pipe;
        pipe.put(good + frame);
        EXPECT_EQ(pipe.drain(), XPCReadResult::Refused);
        EXPECT_EQ(pipe.frames.size(), 1U) << "only the sound frame before it arrives";
        EXPECT_FALSE(pipe.reader.isInsideFrame());
    }
}

// What no sender of ours can make: the last that is taken, and one more.
TEST(XPCFrame, LimitsHoldForWhatArrives) {
    const auto isValid = [](std::size_t keys, std::size_t keyBytes, std::size_t valueBytes) {
        const XPCEntryHeader entry{port::XPCTag::Data, 0, static_cast<std::uint16_t>(keyBytes),
                                   static_cast<std::uint32_t>(valueBytes)};
        std::string one(reinterpret_cast<const char*>(&entry), sizeof entry);
        one.append(keyBytes, 'k').resize(entry.totalBytes());
        std::string body;
        for (std::size_t i = 0; i < keys; ++i)
            body += one;
        XPCFrameHeader header;
        header.bodyBytes = static_cast<std::uint32_t>(body.size());
        header.keyCount = static_cast<std::uint16_t>(keys);
        return header.isValid() && bodyIsValid(header, std::as_bytes(std::span(body)));
    };
    EXPECT_TRUE(isValid(port::kMaxKeys, 1, 0));
    EXPECT_FALSE(isValid(port::kMaxKeys + 1, 1, 0));
    EXPECT_TRUE(isValid(1, port::kMaxKeyBytes, 0));
    EXPECT_FALSE(isValid(1, port::kMaxKeyBytes + 1, 0));
    EXPECT_TRUE(isValid(1, 1, port::kMaxInlineValueBytes));
    EXPECT_FALSE(isValid(1, 1, port::kMaxInlineValueBytes + 1));
}

TEST(XPCFrame, FirstOfEqualKeysCounts) {
    const Dictionary dictionary = sample();
    std::string frame = frameBytes(*dictionary);
    frame.replace(sizeof(XPCFrameHeader) + 48 + sizeof(XPCEntryHeader), 4, "text");
    Pipe pipe;
    pipe.put(frame);
    ASSERT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
    EXPECT_STREQ(xpc_dictionary_get_string(pipe.frames.at(0).get(), "text"), "hello");
}

TEST(XPCFrame, ArrivesWhereverItIsCut) {
    const std::string frame = frameBytes(*sample());
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
        EXPECT_FALSE(pipe.reader.isInsideFrame());
        for (const Dictionary& arrived : pipe.frames)
            EXPECT_EQ(frameBytes(*arrived), frame);
    }
}

// Whatever happens to the bytes, the frames that do arrive hold together and no descriptor stays.
TEST(XPCFrame, FlippedAndTruncatedStreamsDoNoHarm) {
    const auto before = openDescriptors();
    std::mt19937 random(7);
    const std::string good = frameBytes(*sample());
    int refused = 0;
    for (int round = 0; round < 4000; ++round) {
        std::string stream = good + good;
        for (unsigned flips = 1 + random() % 4; flips != 0; --flips) {
            char& victim = stream[random() % stream.size()];
            victim = static_cast<char>(victim ^ (1 << random() % 8));
        }
        stream.resize(1 + random() % stream.size());
        Pipe pipe;
        pipe.put(stream, random() % 8 == 0 ? random() % 20 : 0);
        refused += pipe.drain() == XPCReadResult::Refused;
        for (const Dictionary& arrived : pipe.frames) {
            EXPECT_TRUE(port::bodyIsValid(arrived->header(), arrived->body()));
            const char* const text = xpc_dictionary_get_string(arrived.get(), "text");
            EXPECT_LT(text == nullptr ? 0 : std::strlen(text), stream.size());
        }
    }
    EXPECT_GT(refused, 1000);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(XPCFrame, DescriptorsBelongToTheFrameThatAnnouncesThem) {
    const Dictionary one = makeDictionary();
    xpc_dictionary_set_fd(one.get(), "fd", 0);
    const std::string frame = frameBytes(*one);
    const std::string plain = frameBytes(*sample());
    std::string hidden = frame;
    poke(hidden, 20, std::uint16_t{0});
    struct Row {
        const char* name;
        std::string bytes;
        std::size_t descriptors;
        XPCReadResult result;
        std::size_t frames;
    };
    const Row rows[] = {
        {"exactly", frame, 1, XPCReadResult::WouldBlock, 1},
        {"in the body only", hidden, 0, XPCReadResult::Refused, 0},
        {"none", frame, 0, XPCReadResult::Refused, 0},
        {"one too many", frame, 2, XPCReadResult::Refused, 1},
        {"unannounced", plain, 1, XPCReadResult::Refused, 1},
        {"unannounced, body cut", plain.substr(0, 40), 1, XPCReadResult::Refused, 0},
        {"header cut", frame.substr(0, 20), 1, XPCReadResult::WouldBlock, 0},
        {"at the limit, header cut", plain.substr(0, 1), 16, XPCReadResult::WouldBlock, 0},
        {"more than a message may bring", plain.substr(0, 1), 17, XPCReadResult::Refused, 0},
    };
    const auto before = openDescriptors();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Pipe pipe;
        pipe.put(row.bytes, row.descriptors);
        EXPECT_EQ(pipe.drain(), row.result);
        EXPECT_EQ(pipe.frames.size(), row.frames);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(XPCFrame, AttachedValueMustBeSealedAndOfItsSize) {
    const std::string large(port::kMaxInlineValueBytes + 1, 'L');
    const Dictionary owner = makeDictionary();
    xpc_dictionary_set_data(owner.get(), "large", large.data(), large.size());
    const std::string frame = frameBytes(*owner);
    constexpr int kAll = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    const std::pair<int, int> cases[] = {
        {kAll, 0}, {kAll & ~F_SEAL_WRITE, 0}, {kAll & ~F_SEAL_SHRINK, 0}, {kAll & ~F_SEAL_GROW, 0}, {kAll, 1},
        {kAll, -1}};
    for (const auto& [seals, extra] : cases) {
        SCOPED_TRACE(testing::Message() << "seals " << seals << ", longer by " << extra);
        const port::UniqueFd file(::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        ASSERT_EQ(::ftruncate(file.get(), static_cast<off_t>(large.size()) + extra), 0);
        ASSERT_EQ(::fcntl(file.get(), F_ADD_SEALS, seals), 0);
        Pipe pipe;
        pipe.put(frame, 1, file.get());
        EXPECT_EQ(pipe.drain() == XPCReadResult::WouldBlock, seals == kAll && extra == 0);
    }
    Pipe pipe;
    pipe.put(frame, 1);
    EXPECT_EQ(pipe.drain(), XPCReadResult::Refused) << "not a memory file";
}

TEST(XPCFrameReader, TellsEndFromNothing) {
    Pipe pipe;
    EXPECT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
    pipe.put("PX", 1);
    EXPECT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
    EXPECT_TRUE(pipe.reader.isInsideFrame());
    pipe.sender.reset();
    EXPECT_EQ(pipe.drain(), XPCReadResult::Closed);
    EXPECT_FALSE(pipe.reader.isInsideFrame());
}

// Frames of every size with and without descriptors, barriers between them, through calls that take and give
// only pieces: all arrive in order, and a barrier is reached once the frames before it are handed over.
TEST(XPCFrameWriter, KeepsOrderThroughShortCalls) {
    static std::mt19937 random(99);
    const auto before = openDescriptors();
    for (int round = 0; round < 10; ++round) {
        Pipe pipe;
        port::XPCFrameWriter writer;
        std::vector<dispatch_block_t> reached;
        std::size_t barriers = 0;
        std::size_t ran = 0;
        for (std::uint64_t i = 1; i <= 150; ++i) {
            const Dictionary frame = makeDictionary();
            const std::string filler(random() % 8 == 0 ? random() % 200000 : random() % 100, 'f');
            xpc_dictionary_set_data(frame.get(), "filler", filler.data(), filler.size());
            if (random() % 4 == 0)
                xpc_dictionary_set_fd(frame.get(), "fd", 0);
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
    EXPECT_EQ(openDescriptors(), before);
}

TEST(XPCFrameWriter, PeerThatNeverReadsFillsABoundedQueue) {
    port::XPCFrameWriter writer;
    std::vector<dispatch_block_t> reached;
    const Dictionary frame = makeDictionary();
    const std::string filler(port::kMaxInlineValueBytes, 'f');
    xpc_dictionary_set_data(frame.get(), "filler", filler.data(), filler.size());
    for (int round = 0; round < 2; ++round) {
        std::size_t taken = 0;
        for (; writer.enqueue(*frame, port::XPCFrameKind::Message, 0); ++taken)
            writer.enqueueBarrier([] {});
        EXPECT_GT(taken, port::kSendQueueBytes / filler.size() - 2);
        EXPECT_LE(taken, port::kSendQueueBytes / filler.size());
        EXPECT_EQ(writer.send(-1, *frame, port::XPCFrameKind::Message, 0), port::XPCWriteResult::Failed);
        reached.clear();
        writer.clear(reached);
        EXPECT_EQ(reached.size(), taken) << "barriers are handed back";
    }
}

} // namespace
