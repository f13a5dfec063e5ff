#include "FrameSupport.h"

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

std::string poked(std::string frame, std::size_t offset, std::size_t width, std::uint64_t value) {
    std::memcpy(&frame[offset], &value, width);
    return frame;
}

// The lies that only a close look finds; the coarse ones are told to a real service elsewhere.
TEST(XPCFrame, IsTakenOnlyWhenAllOfItAgrees) {
    const auto lie = [](std::size_t offset, std::size_t width, std::uint64_t value) {
        return sample() + poked(sample(), offset, width, value);
    };
    const Dictionary owner = port::XPCDictionary::create();
    xpc_dictionary_set_fd(owner.get(), "fd", STDIN_FILENO);
    const std::string file = frameBytes(*owner);
    const struct {
        const char* name;
        std::string bytes;
        std::size_t arrive = 1;
        bool sound = false;
        std::size_t descriptors = 0;
    } rows[] = {
        {"kind below", lie(5, 1, 0)},
        {"flags", lie(6, 2, 1)},
        {"no reply id of a request", lie(5, 1, 2)},
        {"body not a multiple of 8", lie(16, 4, 68)},
        {"body one entry short", lie(16, 4, 48)},
        {"attached announced", lie(24, 8, 300000)},
        {"no type", lie(kFlag, 1, 0)},
        {"attached neither", lie(kText + 1, 1, 2)},
        {"attached scalar", lie(kFlag + 1, 1, 1)},
        {"key longer", lie(kFlag + 2, 2, 5)},
        {"key with a terminator inside", lie(kFlag + 9, 1, 0)},
        {"bool of 7 bytes", lie(kFlag + 4, 4, 7)},
        {"bool neither", lie(kFlag + 16, 8, 2)},
        {"string of no bytes", lie(kText + 4, 4, 0)},
        {"data past the body", lie(kData + 4, 4, 9)},
        {"a key twice: the first counts", lie(kData + 8, 4, 0x74786574), 2, true},
        {"a descriptor", file, 1, true, 1},
        {"a descriptor that does not come", file, 0},
        {"a descriptor too many", file, 1, false, 2},
        {"a descriptor in the body only", poked(file, 20, 2, 0), 0},
        {"a descriptor unannounced", sample(), 1, false, 1},
        {"a descriptor unannounced, body cut", sample().substr(0, 40), 0, false, 1},
        {"header cut, descriptors at the limit", file.substr(0, 20), 0, true, port::kMaxDescriptors},
        {"header cut, descriptors past the limit", file.substr(0, 20), 0, false, port::kMaxDescriptors + 1},
    };
    const int before = CountDescriptors(getpid());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Pipe pipe;
        pipe.put(row.bytes, row.descriptors);
        EXPECT_EQ(pipe.drain(), row.sound ? XPCReadResult::WouldBlock : XPCReadResult::Refused);
        EXPECT_EQ(pipe.frames.size(), row.arrive);
        for (const Dictionary& arrived : pipe.frames)
            EXPECT_STREQ(xpc_dictionary_get_string(arrived.get(), "text"), row.bytes == file ? nullptr : "hello");
    }
    EXPECT_EQ(CountDescriptors(getpid()), before);
}

// What no sender of ours can make: the last that is taken, and one more.
bool isSound(std::size_t keys, std::size_t keyBytes, std::size_t valueBytes) {
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
}

TEST(XPCFrame, LimitsHoldForWhatArrives) {
    EXPECT_TRUE(isSound(port::kMaxKeys, 1, 0));
    EXPECT_FALSE(isSound(port::kMaxKeys + 1, 1, 0));
    EXPECT_TRUE(isSound(1, port::kMaxKeyBytes, port::kMaxInlineValueBytes));
    EXPECT_FALSE(isSound(1, port::kMaxKeyBytes + 1, 0));
    EXPECT_FALSE(isSound(1, 1, port::kMaxInlineValueBytes + 1));
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
