#include "FrameSupport.h"

#include "bsd/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <random>

namespace {

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

// Sends the dictionary through sockets and gives back what arrives; none when it cannot be sent.
Dictionary transport(const Dictionary& dictionary) {
    if (!dictionary->seal())
        return {};
    Pipe pipe;
    port::XPCFrameWriter writer;
    std::vector<dispatch_block_t> reached;
    auto state = writer.send(pipe.sender.get(), *dictionary, port::XPCFrameKind::Message, 0);
    while (state == port::XPCWriteResult::Blocked && pipe.drain() == XPCReadResult::WouldBlock)
        state = writer.flush(pipe.sender.get(), reached);
    EXPECT_EQ(pipe.drain(), XPCReadResult::WouldBlock);
    return pipe.frames.size() == 1 ? std::move(pipe.frames.front()) : Dictionary();
}

// Half of them travel through calls that take and give only pieces.
TEST(XPCDictionary, BehavesLikeAMapAndArrivesAsItWas) {
    const int before = CountDescriptors(getpid());
    static std::mt19937 random(20140214);
    constexpr std::size_t kSizes[] = {
        0, 1, 7, 8, 100, 3000, port::kMaxInlineValueBytes, port::kMaxInlineValueBytes + 1};
    for (int round = 0; round < 200; ++round) {
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
        }
        ASSERT_NO_FATAL_FAILURE(expectHolds(dictionary, model));
        if (round % 2 == 0)
            port::sys::setHook([](auto) { return port::sys::Verdict{0, 1 + random() % 5000}; });
        const Dictionary arrived = transport(dictionary);
        port::sys::setHook(nullptr);
        ASSERT_NO_FATAL_FAILURE(expectHolds(arrived, model));
    }
    EXPECT_EQ(CountDescriptors(getpid()), before);
}

TEST(XPCDictionary, ValueMayPointIntoTheDictionaryItself) {
    for (const std::size_t size : {10U, 300U, 5000U, 300000U}) {
        const Dictionary owner = port::XPCDictionary::create();
        const std::string text(size, 'x');
        xpc_dictionary_set_string(owner.get(), "a", text.c_str());
        xpc_dictionary_set_string(owner.get(), "b", xpc_dictionary_get_string(owner.get(), "a"));
        xpc_dictionary_set_string(owner.get(), "a", xpc_dictionary_get_string(owner.get(), "a") + 1);
        EXPECT_EQ(load(owner.get(), "b", Kind::Text), text);
        EXPECT_EQ(load(owner.get(), "a", Kind::Text), text.substr(1));
    }
}

// Every limit: the last that is taken, and one more, which poisons and is never sent.
TEST(XPCDictionary, LimitsPoison) {
    constexpr std::size_t kFixed = sizeof(port::XPCFrameHeader) + 16; // and an entry with a short key
    const std::string bytes(port::kMaxMessageBytes, 'b');
    const struct {
        const char* name;
        std::size_t limit;
        std::size_t step;
        std::function<void(xpc_object_t, std::size_t)> build;
    } rows[] = {
        {"keys", port::kMaxKeys, 1,
         [](auto d, auto count) {
             while (count-- != 0)
                 xpc_dictionary_set_bool(d, std::to_string(count).c_str(), true);
         }},
        {"descriptors", port::kMaxDescriptors, 1,
         [](auto d, auto count) {
             while (count-- != 0)
                 xpc_dictionary_set_fd(d, std::to_string(count).c_str(), STDIN_FILENO);
         }},
        {"key bytes", port::kMaxKeyBytes, 1,
         [](auto d, auto size) { xpc_dictionary_set_bool(d, std::string(size, 'k').c_str(), true); }},
        {"frame bytes", port::kMaxFrameBytes - kFixed - std::size_t{4} * 16, 8,
         [&](auto d, auto size) {
             for (const char* key : {"a", "b", "c", "d", "e"}) {
                 const std::size_t part = std::min(size, std::size_t{250000});
                 xpc_dictionary_set_data(d, key, bytes.data(), part);
                 size -= part;
             }
         }},
        {"message bytes", port::kMaxMessageBytes - kFixed, 1,
         [&](auto d, auto size) { xpc_dictionary_set_data(d, "h", bytes.data(), size); }},
    };
    for (const auto& row : rows) {
        for (const bool past : {false, true}) {
            const Dictionary dictionary = port::XPCDictionary::create();
            row.build(dictionary.get(), row.limit + (past ? row.step : 0));
            EXPECT_EQ(bool(transport(dictionary)), !past) << row.name;
        }
    }
}

TEST(XPCDictionary, BadDescriptorChangesNothingAndNoDescriptorPoisons) {
    const Dictionary dictionary = port::XPCDictionary::create();
    xpc_dictionary_set_bool(dictionary.get(), "k", true);
    xpc_dictionary_set_fd(dictionary.get(), "k", -1);
    EXPECT_TRUE(dictionary->seal());
    xpc_dictionary_set_bool(dictionary.get(), "k", false);
    EXPECT_TRUE(xpc_dictionary_get_bool(dictionary.get(), "k")) << "a sealed dictionary changed";
    const Dictionary starved = port::XPCDictionary::create();
    port::sys::setHook(
        [](auto call) { return port::sys::Verdict{call == port::sys::Call::Duplicate ? EMFILE : 0}; });
    xpc_dictionary_set_fd(starved.get(), "k", STDIN_FILENO);
    port::sys::setHook(nullptr);
    EXPECT_FALSE(starved->seal());
}

} // namespace
