#include "FrameSupport.h"

#include "bsd/SystemCalls.h"

#include <array>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <functional>
#include <map>
#include <random>
#include <sys/stat.h>
#include <thread>

namespace {

using namespace frametest;

constexpr const char* kFile = "/dev/null";

template <auto Setter, typename T>
void setFrom(xpc_object_t d, const char* key, const std::string& content) {
    T value{};
    std::memcpy(&value, content.data(), std::min(sizeof value, content.size()));
    Setter(d, key, value);
}

template <auto Getter>
std::string getAs(xpc_object_t d, const char* key) {
    const auto value = Getter(d, key);
    return value == 0 ? "" : std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

std::string textOrNothing(const char* text) {
    return text == nullptr ? "" : text;
}

// Every type as text in and text out; "" is what a getter of another type must give.
struct Type {
    std::function<void(xpc_object_t, const char*, const std::string&)> set;
    std::function<std::string(xpc_object_t, const char*)> get;
    std::size_t size; // of the content; 0: any
};

const std::array<Type, 8> kTypes{{
    {setFrom<xpc_dictionary_set_int64, std::int64_t>, getAs<xpc_dictionary_get_int64>, 8},
    {setFrom<xpc_dictionary_set_uint64, std::uint64_t>, getAs<xpc_dictionary_get_uint64>, 8},
    {setFrom<xpc_dictionary_set_double, double>, getAs<xpc_dictionary_get_double>, 8},
    {setFrom<xpc_dictionary_set_date, std::int64_t>, getAs<xpc_dictionary_get_date>, 8},
    {[](auto d, auto* key, auto& bytes) { xpc_dictionary_set_data(d, key, bytes.data(), bytes.size()); },
     [](auto d, auto* key) {
         std::size_t length = 99;
         const auto* bytes = static_cast<const char*>(xpc_dictionary_get_data(d, key, &length));
         return bytes == nullptr && length == 0 ? std::string() : std::string(bytes, length);
     },
     0},
    {[](auto d, auto* key, auto& bytes) {
         xpc_dictionary_set_uuid(d, key, reinterpret_cast<const std::uint8_t*>(bytes.data()));
     },
     [](auto d, auto* key) {
         const auto* uuid = reinterpret_cast<const char*>(xpc_dictionary_get_uuid(d, key));
         return uuid == nullptr ? "" : std::string(uuid, 16);
     },
     16},
    {[](auto d, auto* key, auto& text) { xpc_dictionary_set_string(d, key, text.c_str()); },
     [](auto d, auto* key) { return textOrNothing(xpc_dictionary_get_string(d, key)); }, 0},
    {[](auto d, auto* key, auto&) {
         xpc_dictionary_set_fd(d, key, port::UniqueFd(::open(kFile, O_RDONLY | O_CLOEXEC)).get());
     },
     [](auto d, auto* key) {
         const port::UniqueFd fd(xpc_dictionary_dup_fd(d, key));
         struct stat there {
         }, here{};
         const bool same = ::fstat(fd.get(), &there) == 0 && ::stat(kFile, &here) == 0 &&
                           there.st_ino == here.st_ino && there.st_dev == here.st_dev;
         return std::string(fd ? (same ? "the file" : "another file") : "");
     },
     8},
}};

using Model = std::map<std::string, std::pair<std::size_t, std::string>>; // key: type and content

void expectHolds(xpc_object_t dictionary, const Model& model) {
    ASSERT_EQ(port::XPCDictionary::from(dictionary)->header().keyCount, model.size());
    for (const auto& [key, value] : model) {
        for (std::size_t type = 0; type < kTypes.size(); ++type)
            EXPECT_TRUE(kTypes[type].get(dictionary, key.c_str()) ==
                        (type == value.first ? value.second : ""))
                << key << " of type " << value.first << " read as " << type;
    }
}

TEST(XPCDictionary, BehavesLikeAMapAndArrivesAsItWas) {
    const long before = openDescriptors();
    std::mt19937 random(20140214);
    constexpr std::array<std::size_t, 8> kSizes{
        0, 1, 7, 8, 100, 3000, port::kMaxInlineValueBytes, port::kMaxInlineValueBytes + 1};
    for (int round = 0; round < 150; ++round) {
        SCOPED_TRACE(round);
        const Dictionary dictionary = makeDictionary();
        Model model;
        // No more of the large values and the descriptors than one message takes.
        for (std::size_t step = random() % 40, rare = 0; step != 0 && rare < 3; --step) {
            const std::string key = "key " + std::string(random() % 12, 'k');
            const std::size_t type = random() % kTypes.size();
            const bool large = random() % 16 == 0;
            const std::size_t size =
                kTypes[type].size != 0 ? kTypes[type].size : kSizes[random() % (large ? 8 : 6)];
            rare += large;
            const std::string content =
                type == 7 ? "the file" : std::string(size, static_cast<char>('a' + random() % 26));
            kTypes[type].set(dictionary.get(), key.c_str(), content);
            model[key] = {type, content};
        }
        ASSERT_NO_FATAL_FAILURE(expectHolds(dictionary.get(), model));
        const Dictionary arrived = transport(*dictionary);
        ASSERT_TRUE(arrived);
        ASSERT_NO_FATAL_FAILURE(expectHolds(arrived.get(), model));
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(XPCDictionary, ValueMayPointIntoTheDictionaryItself) {
    for (const std::size_t size : {10U, 300U, 5000U, 300000U}) {
        const Dictionary owner = makeDictionary();
        auto* const dictionary = owner.get();
        const std::string text(size, 'x');
        xpc_dictionary_set_string(dictionary, "a", text.c_str());
        xpc_dictionary_set_string(dictionary, "b", xpc_dictionary_get_string(dictionary, "a"));
        xpc_dictionary_set_string(dictionary, "a", xpc_dictionary_get_string(dictionary, "a") + 1);
        EXPECT_EQ(xpc_dictionary_get_string(dictionary, "b"), text);
        EXPECT_EQ(xpc_dictionary_get_string(dictionary, "a"), text.substr(1));
    }
}

// Every limit: the last that is taken, and one more, which poisons and is never sent.
TEST(XPCDictionary, LimitsPoison) {
    constexpr std::size_t kFixed = sizeof(port::XPCFrameHeader) + 16; // and an entry with a short key
    const std::string bytes(port::kMaxMessageBytes, 'b');
    struct Row {
        const char* name;
        std::size_t limit;
        std::size_t step;
        std::function<void(xpc_object_t, std::size_t)> build;
    };
    const auto times = [](auto set) {
        return [=](xpc_object_t d, std::size_t count) {
            for (std::size_t i = 0; i < count; ++i)
                set(d, std::to_string(i).c_str());
        };
    };
    const Row rows[] = {
        {"keys", port::kMaxKeys, 1, times([](auto d, auto* key) { xpc_dictionary_set_bool(d, key, true); })},
        {"descriptors", port::kMaxDescriptors, 1,
         times([](auto d, auto* key) { xpc_dictionary_set_fd(d, key, 0); })},
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
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Dictionary last = makeDictionary();
        row.build(last.get(), row.limit);
        EXPECT_TRUE(transport(*last));
        const Dictionary past = makeDictionary();
        row.build(past.get(), row.limit + row.step);
        EXPECT_FALSE(past->seal());
    }
}

TEST(XPCDictionary, BadDescriptorChangesNothingAndNoDescriptorPoisons) {
    const Dictionary dictionary = makeDictionary();
    xpc_dictionary_set_bool(dictionary.get(), "k", true);
    xpc_dictionary_set_fd(dictionary.get(), "k", -1);
    EXPECT_TRUE(dictionary->seal());
    xpc_dictionary_set_bool(dictionary.get(), "k", false);
    EXPECT_TRUE(xpc_dictionary_get_bool(dictionary.get(), "k")) << "a sealed dictionary changed";

    const Dictionary starved = makeDictionary();
    port::sys::setHook(
        [](auto call) { return port::sys::Verdict{call == port::sys::Call::Duplicate ? EMFILE : 0}; });
    xpc_dictionary_set_fd(starved.get(), "k", 0);
    port::sys::setHook(nullptr);
    EXPECT_FALSE(starved->seal());
}

TEST(XPCDictionary, ManyThreadsMayReadAnAttachedValue) {
    const std::string large(port::kMaxInlineValueBytes + 1, 'L');
    const Dictionary dictionary = makeDictionary();
    xpc_dictionary_set_data(dictionary.get(), "large", large.data(), large.size());
    const Dictionary arrived = transport(*dictionary);
    std::array<const void*, 4> seen{};
    std::array<std::thread, seen.size()> readers;
    for (std::size_t i = 0; i < seen.size(); ++i)
        readers[i] =
            std::thread([&, i] { seen[i] = xpc_dictionary_get_data(arrived.get(), "large", nullptr); });
    for (std::size_t i = 0; i < seen.size(); ++i) {
        readers[i].join();
        EXPECT_EQ(seen[i], seen[0]);
    }
    EXPECT_EQ(std::memcmp(seen[0], large.data(), large.size()), 0);
}

TEST(XPCDictionary, OnlyAMessageThatWantsAReplyGetsOne) {
    for (const auto kind :
         {port::XPCFrameKind::Message, port::XPCFrameKind::MessageWantsReply, port::XPCFrameKind::Reply}) {
        port::XPCFrameHeader header;
        header.kind = kind;
        header.replyId = 77;
        const Dictionary message = port::XPCDictionary::receive(header, std::span<const std::byte>(), {});
        const Dictionary reply = message->createReply();
        EXPECT_EQ(bool(reply), kind == port::XPCFrameKind::MessageWantsReply);
        EXPECT_TRUE(!reply || (reply->kind() == port::XPCFrameKind::Reply && reply->replyId() == 77));
        EXPECT_EQ(xpc_dictionary_create_reply(message.get()), nullptr) << "a second reply";
    }
    EXPECT_EQ(xpc_dictionary_create_reply(XPC_ERROR_CONNECTION_INVALID), nullptr);
}

TEST(XPCDictionary, ErrorsOutliveEveryRelease) {
    for (xpc_object_t error :
         {XPC_ERROR_CONNECTION_INVALID, XPC_ERROR_CONNECTION_INTERRUPTED, XPC_ERROR_TERMINATION_IMMINENT}) {
        xpc_release(error);
        xpc_release(error);
        EXPECT_EQ(xpc_get_type(xpc_retain(error)), XPC_TYPE_ERROR);
        EXPECT_EQ(xpc_dictionary_get_value(error, "b"), nullptr);
    }
}

} // namespace
