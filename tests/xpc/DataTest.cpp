#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "xpc/LXPCData.h"
#include "xpc/internal/LXPCHandles.h"

namespace {

using namespace std::string_literals;

const char someUuid[] = "0123456789abcdef";

LXPCObjectPtr NewDictionary() {
    return LXPCObjectPtr(xpc_dictionary_create(nullptr, nullptr, 0));
}

// What the declared keys take from a dictionary.
struct Received {
    LList<LXPCDataListable> items;
    Received(const LXPCObjectPtr& dictionary, const std::vector<std::pair<std::string, int>>& declared) {
        LList<LXPCDictionaryKeyListable> keys;
        for (const auto& [name, type] : declared)
            keys.AddHead(new LXPCDictionaryKeyListable(name.c_str(), static_cast<LXPCDataType>(type)));
        GetXPCDictionary(dictionary.get(), keys, items);
    }
    std::string Names() const {
        std::string names;
        for (const LXPCDataListable* item = items.GetFirst(); item != nullptr; item = item->pNext)
            names += std::string(item->szName) + " ";
        return names;
    }
    long Value() const { return items.GetFirst()->nValue; }
};

// A dictionary made from items of one type, in list order.
LXPCObjectPtr Sent(const std::vector<std::pair<std::string, long>>& values, int type,
                   unsigned long size = 0) {
    LList<LXPCDataListable> items;
    for (auto value = values.rbegin(); value != values.rend(); value++)
        items.AddHead(
            CreateXPCData({value->first.c_str(), static_cast<LXPCDataType>(type)}, value->second, size));
    LXPCObjectPtr dictionary = NewDictionary();
    SetXPCDictionary(dictionary.get(), items);
    return dictionary;
}

TEST(XpcData, EveryTypeReadAsEveryDeclaredType) {
    const LXPCObjectPtr dictionary = NewDictionary();
    void* const d = dictionary.get();
    xpc_dictionary_set_bool(d, "1", true);
    xpc_dictionary_set_int64(d, "2", -5);
    xpc_dictionary_set_uint64(d, "3", UINT64_MAX - 1);
    xpc_dictionary_set_double(d, "4", -2.9);
    xpc_dictionary_set_date(d, "5", 1234567890123);
    xpc_dictionary_set_data(d, "6", "a\0b", 3);
    xpc_dictionary_set_uuid(d, "7", reinterpret_cast<const std::uint8_t*>(someUuid));
    xpc_dictionary_set_string(d, "8", "text");
    xpc_dictionary_set_fd(d, "9", STDOUT_FILENO);
    const std::string values[] = {"", "1", "-5", "-2", "-2", "1234567890123", "a\0b"s, someUuid, "text\0"s};
    for (int declared = -1; declared <= 10; declared++)
        for (int stored = 1; stored <= 9; stored++) {
            SCOPED_TRACE("declared " + std::to_string(declared) + ", stored " + std::to_string(stored));
            const Received received(dictionary, {{std::to_string(stored), declared}});
            const LXPCDataListable* item = received.items.GetFirst();
            ASSERT_EQ(item != nullptr, declared >= 1 && declared <= 9);
            if (item == nullptr)
                continue;
            EXPECT_EQ(item->eType, declared);
            EXPECT_EQ(item->dwSize, declared == 6 && stored == 6 ? 3u : 0u);
            if (declared != stored)
                EXPECT_EQ(item->nValue, declared == LXPCDataTypeFD ? -1 : 0);
            else if (declared == LXPCDataTypeFD)
                EXPECT_TRUE(item->nValue != STDOUT_FILENO && close(static_cast<int>(item->nValue)) == 0);
            else if (declared <= 5)
                EXPECT_EQ(std::to_string(item->nValue), values[declared]);
            else
                EXPECT_EQ(std::string(reinterpret_cast<const char*>(item->nValue), values[declared].size()),
                          values[declared]);
        }
}

TEST(XpcData, DoublesSaturate) {
    const double sent[] = {NAN, 0x1p63, 0x1.fffffffffffffp62, -0x1p63, -INFINITY};
    const long expected[] = {0, LONG_MAX, 0x7ffffffffffffc00, LONG_MIN, LONG_MIN};
    for (int n = 0; n < 5; n++) {
        const LXPCObjectPtr dictionary = NewDictionary();
        xpc_dictionary_set_double(dictionary.get(), "d", sent[n]);
        EXPECT_EQ(Received(dictionary, {{"d", 4}}).Value(), expected[n]) << sent[n];
    }
}

TEST(XpcData, WhatIsWrittenAndWhatIsSkipped) {
    for (int type = 1; type <= 5; type++)
        EXPECT_EQ(Received(Sent({{"k", -1}}, type), {{"k", type}}).Value(), type == 1 ? 1 : -1) << type;
    EXPECT_EQ(Received(Sent({{"k", -1}}, 6), {{"k", 6}}).Names(), "k ") << "empty data without pointer";
    EXPECT_EQ(Received(Sent({{"k", LXPCHandle(someUuid)}}, 7), {{"k", 7}}).Names(), "k ");
    // Pointers and descriptors that are none, one whose low half is 1, and types that are none.
    for (const auto& [type, value] :
         {std::pair(6, 0L), {7, -1L}, {8, -1L}, {8, 0L}, {9, -1L}, {9, (1L << 32) + 1}, {0, 1L}, {10, 1L}})
        EXPECT_EQ(Received(Sent({{"k", value}}, type, 4), {{"k", 2}}).Names(), "") << type << " " << value;
}

TEST(XpcData, NamesAreCutAt259BytesOnBothSides) {
    const std::string base(257, 'n');
    for (const std::string& name :
         {base + "a", base + "ab", base + "abc", base + "abcd", base + "a\xC3\xA9"}) {
        const LXPCObjectPtr dictionary = Sent({{name, 7}}, 2);
        const std::string cut = name.substr(0, 259);
        EXPECT_EQ(xpc_dictionary_get_int64(dictionary.get(), cut.c_str()), 7) << name.size();
        EXPECT_EQ(Received(dictionary, {{name + "tail", 2}}).Names(), cut.size() == 259 ? cut + " " : "")
            << name.size();
    }
}

TEST(XpcData, OrderAndDuplicates) {
    const LXPCObjectPtr dictionary = Sent({{"other", 4}, {"gamma", 3}, {"alpha", 2}, {"gamma", 1}}, 2);
    EXPECT_EQ(Received(dictionary, {{"gamma", 2}}).Value(), 1) << "the later in the list wins";
    EXPECT_EQ(Received(dictionary, {{"alpha", 2}, {"beta", 2}, {"gamma", 2}}).Names(), "alpha gamma ");
    EXPECT_EQ(Received(dictionary, {{"gamma", 2}, {"gamma", 1}}).Names(), "gamma gamma ");
    EXPECT_EQ(Received(dictionary, {{"Gamma", 2}, {"", 2}}).Names(), "");
}

} // namespace
