// Messages as their sender and receiver see them, and as they travel.
#include "host/SystemCalls.h"
#include "support/MainQueue.h"
#include "xpc/XPCFrameReader.h"
#include "xpc/XPCFrameWriter.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using Dictionary = port::XPCRef<port::XPCDictionary>;
using port::XPCReadResult;

// The receiving end of a connection, fed by hand or by a writer through the other end.
class Pipe final : public port::XPCFrameSink {
public:
    Pipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
        sender.reset(ends[0]);
        receiver_.reset(ends[1]);
    }

    bool frameReceived(Dictionary frame) override {
        frames.push_back(std::move(frame));
        return true;
    }

    // Raw bytes, with `count` times the file beside the first.
    void put(const std::string& bytes, std::size_t count = 0, int file = STDIN_FILENO) const {
        iovec part{const_cast<char*>(bytes.data()), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        const std::vector<int> files(count, file);
        std::vector<char> control(CMSG_SPACE(count * sizeof(int)));
        if (count != 0) {
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            *CMSG_FIRSTHDR(&message) = {CMSG_LEN(count * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
            std::memcpy(CMSG_DATA(CMSG_FIRSTHDR(&message)), files.data(), count * sizeof(int));
        }
        ASSERT_EQ(::sendmsg(sender.get(), &message, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    // Reads until the socket has nothing more, or the connection is over.
    XPCReadResult drain() {
        auto result = XPCReadResult::Read;
        while (result == XPCReadResult::Read || result == XPCReadResult::Emptied)
            result = reader.readFrom(receiver_.get(), port::XPCScratch::ofThisThread(), *this);
        return result;
    }

    port::UniqueFd sender;
    port::XPCFrameReader reader;
    std::vector<Dictionary> frames;

private:
    port::UniqueFd receiver_;
};

// Header and body as they travel.
std::string frameBytes(const port::XPCDictionary& dictionary) {
    const port::XPCFrameHeader header = dictionary.header();
    return std::string(reinterpret_cast<const char*>(&header), sizeof header)
        .append(reinterpret_cast<const char*>(dictionary.body().data()), dictionary.body().size());
}

constexpr std::size_t kFlag = sizeof(port::XPCFrameHeader); // where the entries of the sample lie
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
    return frame.replace(offset, width, reinterpret_cast<const char*>(&value), width);
}

// One lie each, behind a sound frame.
TEST(XPCFrame, IsTakenOnlyWhenAllOfItAgrees) {
    const auto lie = [](std::size_t offset, std::size_t width, std::uint64_t value) {
        return sample() + poked(sample(), offset, width, value);
    };
    const Dictionary owner = port::XPCDictionary::create();
    xpc_dictionary_set_fd(owner.get(), "fd", STDIN_FILENO);
    const std::string file = frameBytes(*owner);
    std::string many = sample().substr(0, kFlag);
    for (std::size_t i = 0; i <= port::kMaxKeys; ++i)
        many += sample().substr(kFlag, kText - kFlag);
    many = poked(poked(many, 16, 4, many.size() - kFlag), 22, 2, port::kMaxKeys + 1);
    const Dictionary named = port::XPCDictionary::create();
    xpc_dictionary_set_data(named.get(), std::string(port::kMaxKeyBytes, 'k').c_str(),
                            std::string(16, 0).data(), 16);
    const std::string longKey = poked(frameBytes(*named), kFlag + 8 + port::kMaxKeyBytes, 1, 'k');
    // Name, bytes, frames that arrive, whether the connection is sound, descriptors with the first byte.
    const std::tuple<const char*, std::string, std::size_t, bool, std::size_t> rows[] = {
        {"version", lie(4, 1, 2), 1, false, 0},
        {"kind above", lie(5, 1, 4), 1, false, 0},
        {"flags", lie(6, 2, 1), 1, false, 0},
        {"no reply id of a request", lie(5, 1, 2), 1, false, 0},
        {"body not a multiple of 8", lie(16, 4, 68), 1, false, 0},
        {"body one entry short", lie(16, 4, 48), 1, false, 0},
        {"body past the limit", lie(16, 4, port::kMaxFrameBytes - 24), 1, false, 0},
        {"attached announced", lie(24, 8, 300000), 1, false, 0},
        {"type of no value", lie(kFlag, 1, 10), 1, false, 0},
        {"attached scalar", lie(kFlag + 1, 1, 1), 1, false, 0},
        {"key with a terminator inside", lie(kFlag + 9, 1, 0), 1, false, 0},
        {"bool of 7 bytes", lie(kFlag + 4, 4, 7), 1, false, 0},
        {"bool neither", lie(kFlag + 16, 8, 2), 1, false, 0},
        {"string of no bytes", lie(kText + 4, 4, 0), 1, false, 0},
        {"data past the body", lie(kData + 4, 4, 9), 1, false, 0},
        {"keys past the limit", many, 0, false, 0},
        {"key past the limit", poked(longKey, kFlag + 2, 6, port::kMaxKeyBytes + 1 + (8 << 16)), 0, false, 0},
        {"a key twice: the first counts", lie(kData + 8, 4, 0x74786574), 2, true, 0},
        {"a descriptor", file, 1, true, 1},
        {"a descriptor too many", file, 1, false, 2},
        {"a descriptor in the body only", poked(file, 20, 2, 0), 0, false, 0},
        {"a descriptor unannounced", sample(), 1, false, 1},
        {"header cut, descriptors at the limit", file.substr(0, 20), 0, true, port::kMaxDescriptors},
        {"header cut, descriptors past the limit", file.substr(0, 20), 0, false, port::kMaxDescriptors + 1},
    };
    for (const auto& [name, bytes, arrive, sound, descriptors] : rows) {
        SCOPED_TRACE(name);
        Pipe pipe;
        pipe.put(bytes, descriptors);
        EXPECT_EQ(pipe.drain(), sound ? XPCReadResult::WouldBlock : XPCReadResult::Refused);
        EXPECT_EQ(pipe.frames.size(), arrive);
        for (const Dictionary& arrived : pipe.frames)
            EXPECT_STREQ(xpc_dictionary_get_string(arrived.get(), "text"), bytes == file ? nullptr : "hello");
    }
}

// Their memory is guessed from the one before.
TEST(XPCFrame, LargeFramesOfAboutTheSameSizeArriveWholeInAnyPieces) {
    std::mt19937 wild(20261123);
    Pipe pipe;
    std::string sent, stream;
    std::size_t size = 20'000;
    for (int frame = 0; frame < 300; ++frame) {
        size = frame % 8 == 0 ? 14'000 + wild() % 30'000 : size - 100 + wild() % 200;
        std::string data(size, '\0');
        for (std::size_t at = 0; at < size; at += 1 + wild() % 64)
            data[at] = static_cast<char>(wild());
        const Dictionary dictionary = port::XPCDictionary::create();
        xpc_dictionary_set_data(dictionary.get(), "data", data.data(), data.size());
        stream += frameBytes(*dictionary);
        sent += data;
    }
    for (std::size_t at = 0; at < stream.size();) {
        const std::string piece = stream.substr(at, 1 + wild() % (wild() % 2 == 0 ? 64 : 40'000));
        pipe.put(piece);
        ASSERT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
        at += piece.size();
    }
    std::string arrived;
    for (const Dictionary& frame : pipe.frames) {
        std::size_t length = 0;
        const void* const data = xpc_dictionary_get_data(frame.get(), "data", &length);
        arrived.append(static_cast<const char*>(data), length);
    }
    EXPECT_TRUE(arrived == sent);
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

// What is stored in three ways: in the body, in a memory file when it is large, and as a descriptor.
enum class Kind { Data, Text, File };
constexpr Kind kKinds[] = {Kind::Data, Kind::Text, Kind::File};

void store(xpc_object_t dictionary, const char* key, Kind kind, const std::string& content) {
    if (kind == Kind::Data)
        xpc_dictionary_set_data(dictionary, key, content.data(), content.size());
    else if (kind == Kind::Text)
        xpc_dictionary_set_string(dictionary, key, content.c_str());
    else
        xpc_dictionary_set_fd(dictionary, key, port::makeValueFile(content.data(), content.size()).get());
}

// "" for what is not there or of another kind.
std::string load(xpc_object_t dictionary, const char* key, Kind kind) {
    std::size_t length = 0;
    const void* bytes = xpc_dictionary_get_data(dictionary, key, &length);
    const char* const text = xpc_dictionary_get_string(dictionary, key);
    if (kind != Kind::File)
        return kind == Kind::Text ? text == nullptr ? "" : text
                                  : std::string(static_cast<const char*>(bytes), length);
    std::string content(8, '\0');
    const port::UniqueFd file(xpc_dictionary_dup_fd(dictionary, key));
    return ::pread(file.get(), content.data(), 8, 0) == 8 ? content : "";
}

using Model = std::map<std::string, std::pair<Kind, std::string>>; // key: kind and content

void expectHolds(const Dictionary& dictionary, const Model& model) {
    ASSERT_TRUE(dictionary);
    ASSERT_EQ(dictionary->header().keyCount, model.size());
    for (const auto& [key, value] : model) {
        for (const Kind kind : kKinds)
            EXPECT_TRUE(load(dictionary.get(), key.c_str(), kind) ==
                        (kind == value.first ? value.second : ""))
                << key << " of kind " << int(value.first) << " read as " << int(kind);
    }
}

// Sends the dictionary through sockets, three times if it is not too large for that, and gives back what
// arrives last; none when it cannot be sent.
Dictionary transport(const Dictionary& dictionary) {
    if (!dictionary->seal())
        return {};
    Pipe pipe;
    port::XPCFrameWriter writer;
    std::vector<dispatch_block_t> reached;
    std::size_t sent = 0;
    while (sent < 3 && writer.enqueue(*dictionary, port::XPCFrameKind::Message, 0))
        ++sent;
    while (writer.flush(pipe.sender.get(), reached) == port::XPCWriteResult::Blocked)
        EXPECT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
    EXPECT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
    return pipe.frames.size() == sent ? pipe.frames.back() : Dictionary();
}

// Half of them travel through calls that take and give only pieces, of headers too.
TEST(XPCDictionary, BehavesLikeAMapAndArrivesAsItWas) {
    Serve(20); // the loop has descriptors too, and others are being closed
    const int before = CountDescriptors(getpid());
    static std::mt19937 random(20140214);
    constexpr std::size_t kSizes[] = {
        0, 1, 7, 8, 100, 3000, port::kMaxInlineValueBytes, port::kMaxInlineValueBytes + 1};
    for (int round = 0; round < 1000; ++round) {
        SCOPED_TRACE(round);
        const Dictionary dictionary = port::XPCDictionary::create();
        Model model;
        // No more of the large values and the descriptors than one message takes.
        for (std::size_t step = random() % 40, rare = 0; step != 0 && rare < 3; --step) {
            const std::string key = "key " + std::string(random() % 12, 'k');
            const Kind kind = kKinds[random() % 3];
            const bool large = random() % 16 == 0;
            const std::size_t size = kind == Kind::File ? 8 : kSizes[random() % (large ? 8 : 6)];
            rare += large;
            const std::string content(size, static_cast<char>('a' + random() % 26));
            store(dictionary.get(), key.c_str(), kind, content);
            model[key] = {kind, content};
            if (kind == Kind::Text && size != 0 && step % 3 == 0) { // a value from inside the dictionary
                xpc_dictionary_set_string(dictionary.get(), key.c_str(),
                                          xpc_dictionary_get_string(dictionary.get(), key.c_str()) + 1);
                model[key].second.erase(0, 1);
            }
        }
        ASSERT_NO_FATAL_FAILURE(expectHolds(dictionary, model));
        if (round % 2 == 0)
            port::sys::setHook([](auto) {
                return port::sys::Verdict{0, 1 + random() % (random() % 4 == 0 ? 40 : 5000)};
            });
        const Dictionary arrived = transport(dictionary);
        port::sys::setHook(nullptr);
        ASSERT_NO_FATAL_FAILURE(expectHolds(arrived, model));
    }
    EXPECT_TRUE(WaitFor([&] { return CountDescriptors(getpid()) <= before; }));
}

// Every limit: the last that is taken, and one more, which poisons and is never sent.
TEST(XPCDictionary, LimitsPoison) {
    constexpr std::size_t kFixed = sizeof(port::XPCFrameHeader) + 16; // and an entry with a short key
    constexpr std::size_t kQuarter = (port::kMaxFrameBytes - kFixed) / 4 - 12;
    const std::tuple<std::size_t, std::size_t, std::size_t, bool> rows[] = {
        {port::kMaxKeys, 4, 0, true},
        {port::kMaxKeys + 1, 4, 0, false},
        {1, port::kMaxKeyBytes, port::kMaxInlineValueBytes, true},
        {1, port::kMaxKeyBytes + 1, 0, false},
        {4, 4, kQuarter, true},
        {4, 4, kQuarter + 1, false},
        {1, 4, port::kMaxMessageBytes - kFixed, true},
        {1, 4, port::kMaxMessageBytes - kFixed + 1, false},
        {port::kMaxDescriptors, 4, port::kMaxInlineValueBytes + 1, true},
        {port::kMaxDescriptors + 1, 4, port::kMaxInlineValueBytes + 1, false},
    };
    for (const auto& [keys, keyBytes, valueBytes, sent] : rows) {
        const Dictionary dictionary = port::XPCDictionary::create();
        for (std::size_t i = 0; i < keys; ++i) {
            std::string key = std::to_string(i);
            key.resize(keyBytes, 'k');
            store(dictionary.get(), key.c_str(), Kind::Data, std::string(valueBytes, 'b'));
        }
        EXPECT_EQ(bool(transport(dictionary)), sent)
            << keys << " keys of " << keyBytes << ", values of " << valueBytes;
    }
}

TEST(XPCHold, WhenItIsFullOnlyShortMessagesGoOn) {
    for (const auto& [bytes, goesOn] :
         {std::pair<std::size_t, bool>{3000, true}, {5000, false}, {300'000, false}}) {
        for (const bool full : {false, true}) {
            const Dictionary dictionary = port::XPCDictionary::create();
            store(dictionary.get(), "k", Kind::Data, std::string(bytes, 'b'));
            const port::XPCHold others(full ? port::kMaxHeldBytes - 4000 : 0);
            const port::XPCAttachments& files = dictionary->attachments();
            Pipe pipe;
            pipe.put(frameBytes(*dictionary), files.size(), files.size() == 0 ? 0 : files.descriptor(0));
            EXPECT_EQ(pipe.drain() == XPCReadResult::WouldBlock, goesOn || !full) << bytes;
            EXPECT_EQ(port::XPCFrameWriter().enqueue(*dictionary, port::XPCFrameKind::Message, 0),
                      goesOn || !full)
                << bytes;
        }
    }
}

TEST(XPCDictionary, WithoutADescriptorItIsPoisoned) {
    const Dictionary starved = port::XPCDictionary::create();
    port::sys::setHook([](auto) { return port::sys::Verdict{EMFILE}; });
    xpc_dictionary_set_fd(starved.get(), "k", STDIN_FILENO);
    port::sys::setHook(nullptr);
    EXPECT_FALSE(starved->seal());
}

} // namespace
