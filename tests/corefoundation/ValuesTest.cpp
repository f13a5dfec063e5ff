#include "Support.h"

#include "corefoundation/CFValues.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <random>
#include <vector>

namespace {

using Number = port::CFRef<CFNumberRef>;

constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax64 = std::numeric_limits<std::int64_t>::max();

Number number(auto value) {
    return Number(new __CFNumber(value));
}

TEST(CFNumber, ValuesComeBackAsTheyAreOrAsTheNearest) {
    const struct {
        Number number;
        std::int64_t nearest;
        bool exact;
    } rows[] = {
        {number(std::int64_t{-1}), -1, true},
        {number(kMin64), kMin64, true},
        {number(std::uint64_t{1} << 63), kMax64, false},
        {number(2.0), 2, true},
        {number(-2.5), -2, false},
        {number(9223372036854775808.0), kMax64, false},
        {number(-9223372036854775808.0), kMin64, true},
        {number(-1e300), kMin64, false},
        {number(std::nan("")), 0, false},
    };
    for (const auto& row : rows) {
        std::int64_t value = 42;
        EXPECT_EQ(row.exact, CFNumberGetValue(row.number.get(), kCFNumberLongType, &value) != 0)
            << row.nearest;
        EXPECT_EQ(row.nearest, value);
    }
    int narrow = 0;
    EXPECT_FALSE(CFNumberGetValue(number(std::int64_t{1} << 31).get(), kCFNumberIntType, &narrow));
    EXPECT_EQ(std::numeric_limits<int>::max(), narrow);
    double real = 0;
    EXPECT_TRUE(CFNumberGetValue(number(std::int64_t{1} << 60).get(), kCFNumberDoubleType, &real));
    EXPECT_EQ(std::ldexp(1.0, 60), real);
    EXPECT_FALSE(CFNumberGetValue(number((std::int64_t{1} << 60) + 1).get(), kCFNumberDoubleType, &real));
}

TEST(CFNumber, EqualMeansOneValueAcrossSignAndWidth) {
    const auto same = [](const Number& one, const Number& other) {
        return CFEqual(one.get(), other.get()) != 0;
    };
    EXPECT_FALSE(same(number(kMax64), number(9223372036854775808.0)));
    EXPECT_FALSE(same(number(std::int64_t{-1}), number(~std::uint64_t{0})));
    EXPECT_FALSE(same(number(~std::uint64_t{0}), number(18446744073709551616.0)));
    EXPECT_FALSE(same(number(std::int64_t{0}), number(0.5)));
    EXPECT_TRUE(same(number(std::int64_t{1}), number(1.0)));
    EXPECT_TRUE(same(number(std::uint64_t{1} << 63), number(9223372036854775808.0)));
}

TEST(CFDictionary, BehavesAsASortedMapUnderRandomChanges) {
    std::mt19937 random(20261122);
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const std::vector<std::string> letters = {"a", "b", "\xC3\xA9", "\xEF\xBF\xBD", "\xF0\x9F\x98\x80"};
    std::map<std::string, std::int64_t> model; // bytes of UTF-8 sort as the code points do
    const port::CFRef<CFMutableDictionaryRef> dictionary(
        CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
    for (int round = 0; round < 5000; ++round) {
        std::string name;
        for (unsigned length = below(4); length != 0; --length)
            name += letters[below(5)];
        const auto key = port::makeString(name);
        if (below(3) == 0) {
            model.erase(name);
            CFDictionaryRemoveValue(dictionary.get(), key.get());
        } else {
            model[name] = round;
            CFDictionarySetValue(dictionary.get(), key.get(), number(std::int64_t{round}).get());
        }
        const auto found = static_cast<CFNumberRef>(CFDictionaryGetValue(dictionary.get(), key.get()));
        ASSERT_EQ(model.contains(name), found != nullptr) << round;
    }
    std::vector<const void*> keys(model.size());
    ASSERT_EQ(static_cast<CFIndex>(model.size()), CFDictionaryGetCount(dictionary.get()));
    CFDictionaryGetKeysAndValues(dictionary.get(), keys.data(), nullptr);
    auto key = keys.begin();
    for (const auto& [name, value] : model) {
        EXPECT_TRUE(CFEqual(port::makeString(name).get(), *key)) << name;
        EXPECT_TRUE(CFEqual(number(value).get(), CFDictionaryGetValue(dictionary.get(), *key++))) << name;
    }
}

} // namespace
