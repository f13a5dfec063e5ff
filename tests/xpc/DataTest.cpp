#include <climits>
#include <cmath>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

#include "xpc/LXPCData.h"
#include "xpc/LXPCHandles.h"

namespace {

using namespace std::string_view_literals;

const std::uint8_t someUuid[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

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
    xpc_dictionary_set_uuid(d, "7", someUuid);
    xpc_dictionary_set_string(d, "8", "text");
    xpc_dictionary_set_fd(d, "9", STDOUT_FILENO);
    const long numbers[] = {0, 1, -5, -2, -2, 1234567890123};
    const std::string_view bytes[] = {"a\0b"sv, {reinterpret_cast<const char*>(someUuid), 16}, "text\0"sv};
    for (int declared = -1; declared <= 11; declared++)
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
            else if (declared <= 5)
                EXPECT_EQ(item->nValue, numbers[declared]);
            else if (declared == LXPCDataTypeFD)
                EXPECT_TRUE(item->nValue != STDOUT_FILENO && close(static_cast<int>(item->nValue)) == 0);
            else
                EXPECT_EQ(
                    std::string_view(reinterpret_cast<const char*>(item->nValue), bytes[declared - 6].size()),
                    bytes[declared - 6]);
        }
}

TEST(XpcData, DoublesTruncateAndSaturate) {
    const std::pair<double, long> rows[] = {{2.9, 2},
                                            {-2.9, -2},
                                            {-0.5, 0},
                                            {NAN, 0},
                                            {INFINITY, LONG_MAX},
                                            {-INFINITY, LONG_MIN},
                                            {0x1p63, LONG_MAX},
                                            {-0x1p63, LONG_MIN},
                                            {-1e300, LONG_MIN},
                                            {0x1.fffffffffffffp62, 0x7ffffffffffffc00}};
    for (const auto& [sent, expected] : rows) {
        const LXPCObjectPtr dictionary = NewDictionary();
        xpc_dictionary_set_double(dictionary.get(), "d", sent);
        EXPECT_EQ(Received(dictionary, {{"d", 4}}).items.GetFirst()->nValue, expected) << sent;
    }
}

TEST(XpcData, WhatIsWrittenAndWhatIsSkipped) {
    const struct {
        const char* what;
        int type;
        long value;
        unsigned long size;
        bool written;
    } rows[] = {
        {"empty data without pointer", 6, -1, 0, true},
        {"data of no pointer", 6, 0, 4, false},
        {"uuid of no pointer", 7, -1, 0, false},
        {"uuid", 7, LXPCHandle(someUuid), 0, true},
        {"text of no pointer", 8, -1, 0, false},
        {"text of null", 8, 0, 0, false},
        {"no descriptor", 9, -1, 0, false},
        {"beyond int, low half 1", 9, (1L << 32) + 1, 0, false},
        {"type none", 0, 1, 0, false},
        {"type 10", 10, 1, 0, false},
        {"type -1", -1, 1, 0, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(xpc_dictionary_get_value(Sent({{"k", row.value}}, row.type, row.size).get(), "k") !=
                      nullptr,
                  row.written)
            << row.what;
    EXPECT_TRUE(xpc_dictionary_get_bool(Sent({{"k", 5}}, 1).get(), "k"));
    EXPECT_EQ(xpc_dictionary_get_int64(Sent({{"k", -1}}, 2).get(), "k"), -1);
    EXPECT_EQ(xpc_dictionary_get_uint64(Sent({{"k", -1}}, 3).get(), "k"), UINT64_MAX);
    EXPECT_EQ(xpc_dictionary_get_double(Sent({{"k", 7}}, 4).get(), "k"), 7.0);
    EXPECT_EQ(xpc_dictionary_get_date(Sent({{"k", LONG_MIN}}, 5).get(), "k"), INT64_MIN);
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
    EXPECT_EQ(xpc_dictionary_get_int64(dictionary.get(), "gamma"), 1) << "the later in the list wins";
    EXPECT_EQ(Received(dictionary, {{"alpha", 2}, {"beta", 2}, {"gamma", 2}}).Names(), "alpha gamma ");
    EXPECT_EQ(Received(dictionary, {{"gamma", 2}, {"gamma", 1}}).Names(), "gamma gamma ");
    EXPECT_EQ(Received(dictionary, {{"Gamma", 2}, {"", 2}}).Names(), "");
    Received received(dictionary, {{"other", 2}});
    LList<LXPCDictionaryKeyListable> keys;
    keys.AddHead(new LXPCDictionaryKeyListable("alpha", LXPCDataTypeInt64));
    GetXPCDictionary(dictionary.get(), keys, received.items);
    EXPECT_EQ(received.Names(), "alpha other ") << "new items stand before those that were there";
}

} // namespace
