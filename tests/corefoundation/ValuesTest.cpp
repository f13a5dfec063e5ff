#include "Support.h"

#include "corefoundation/CFContainers.h"
#include "corefoundation/CFValues.h"

#include <cmath>
#include <map>
#include <random>

namespace {

using Number = port::CFRef<CFNumberRef>;

Number number(auto value) {
    return Number(new __CFNumber(value));
}

TEST(CFNumber, ValuesComeBackAsTheyAreOrAsTheNearest) {
    const std::tuple<Number, std::int64_t, bool> rows[] = {
        {number(INT64_MIN), INT64_MIN, true},
        {number(std::uint64_t{1} << 63), INT64_MAX, false},
        {number(-2.5), -2, false},
        {number(9223372036854775808.0), INT64_MAX, false},
        {number(-9223372036854775808.0), INT64_MIN, true},
        {number(-1e300), INT64_MIN, false},
        {number(std::nan("")), 0, false},
    };
    for (const auto& [real, nearest, exact] : rows) {
        std::int64_t value = 42;
        EXPECT_EQ(exact, CFNumberGetValue(real.get(), kCFNumberLongType, &value) != 0) << nearest;
        EXPECT_EQ(nearest, value);
    }
    int narrow = 0;
    EXPECT_FALSE(CFNumberGetValue(number(std::int64_t{1} << 31).get(), kCFNumberIntType, &narrow));
    EXPECT_EQ(INT32_MAX, narrow);
    double real = 0;
    EXPECT_FALSE(CFNumberGetValue(number((std::int64_t{1} << 60) + 1).get(), kCFNumberDoubleType, &real));
}

TEST(CFNumber, EqualMeansOneValueAcrossSignAndWidth) {
    const std::tuple<Number, Number, bool> rows[] = {
        {number(INT64_MAX), number(9223372036854775808.0), false},
        {number(std::int64_t{-1}), number(~std::uint64_t{0}), false},
        {number(~std::uint64_t{0}), number(18446744073709551616.0), false},
        {number(std::int64_t{0}), number(0.5), false},
        {number(std::uint64_t{1} << 63), number(9223372036854775808.0), true},
    };
    for (const auto& [one, other, same] : rows)
        EXPECT_EQ(same, CFEqual(one.get(), other.get()) != 0) << one.get()->bits;
}

TEST(CFDictionary, BehavesAsASortedMapUnderRandomChanges) {
    std::mt19937 random(20261122);
    const auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    const std::string letters[] = {"a", "b", "\xC3\xA9", "\xEF\xBF\xBD", "\xF0\x9F\x98\x80"};
    std::map<std::string, std::int64_t> model; // bytes of UTF-8 sort as the code points do
    const port::CFRef<CFMutableDictionaryRef> dictionary(
        CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr));
    for (int round = 0; round < 5000; ++round) {
        std::string name;
        for (unsigned length = below(4); length != 0; --length)
            name += letters[below(5)];
        const String key = port::makeString(name);
        if (below(3) == 0) {
            model.erase(name);
            CFDictionaryRemoveValue(dictionary.get(), key.get());
        } else {
            model[name] = round;
            CFDictionarySetValue(dictionary.get(), key.get(), number(std::int64_t{round}).get());
        }
        ASSERT_EQ(static_cast<CFIndex>(model.size()), CFDictionaryGetCount(dictionary.get())) << round;
    }
    auto entry = dictionary.get()->entries().begin();
    for (const auto& [name, value] : model) {
        EXPECT_EQ(name, textOf(entry->key));
        EXPECT_TRUE(CFEqual(number(value).get(), entry++->value.get())) << name;
        EXPECT_TRUE(CFDictionaryGetValue(dictionary.get(), port::makeString(name).get())) << name;
    }
}

} // namespace
