#include "Support.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

std::string bigEndian(std::uint64_t value, std::size_t width) {
    std::string bytes;
    for (std::size_t i = width; i-- > 0;)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string file(const std::string& objects, const std::vector<std::size_t>& offsets, std::size_t references,
                 std::size_t top) {
    std::string bytes = "bplist00" + objects;
    for (const std::size_t offset : offsets)
        bytes += bigEndian(offset, 4);
    return bytes + std::string(6, '\0') + bigEndian(4, 1) + bigEndian(references, 1) +
           bigEndian(offsets.size(), 8) + bigEndian(top, 8) + bigEndian(8 + objects.size(), 8);
}

// The list of these objects, the first on top; references have one byte.
std::string listOf(const std::vector<std::string>& objects) {
    std::string all;
    std::vector<std::size_t> offsets;
    for (const std::string& object : objects) {
        offsets.push_back(8 + all.size());
        all += object;
    }
    return file(all, offsets, 1, 0);
}

std::string bytes(std::initializer_list<int> values) {
    return {values.begin(), values.end()};
}

// A marker whose count stands behind it, four bytes wide.
std::string counted(int type, std::size_t count) {
    return bytes({type << 4 | 0xF, 0x12}) + bigEndian(count, 4);
}

TEST(PropertyListBinary, ValuesOfUnusualWidth) {
    const std::pair<std::string, std::string_view> rows[] = {
        {bytes({0x10, 0xFF}), "<integer>255</integer>\n"},
        {bytes({0x12, 0xFF, 0xFF, 0xFF, 0xFF}), "<integer>4294967295</integer>\n"},
        {bytes({0x13}) + bigEndian(~std::uint64_t{0}, 8), "<integer>-1</integer>\n"},
        {bytes({0x14}) + bigEndian(0, 8) + bigEndian(~std::uint64_t{0}, 8),
         "<integer>18446744073709551615</integer>\n"},
        {bytes({0x14}) + std::string(16, '\xFF'), "<integer>-1</integer>\n"},
        {bytes({0x22, 0x3F, 0xC0, 0, 0}), "<real>1.5</real>\n"},
        {counted(4, 1) + "\xAB", "<data>\nqw==\n</data>\n"},
    };
    for (const auto& [object, canonical] : rows)
        EXPECT_EQ(canonical, rewritten(listOf({object}))) << testing::PrintToString(object);
}

TEST(PropertyListBinary, MalformedObjectsAreRefusedWithTheirOffset) {
    const std::string nan = bytes({0x33, 0x7F, 0xF8, 0, 0, 0, 0, 0, 0});
    const std::string wide = bytes({0x14}) + bigEndian(1, 8) + bigEndian(0, 8);
    const std::string below = bytes({0x14}) + bigEndian(~std::uint64_t{0}, 8) + bigEndian(0, 8);
    const std::pair<std::string_view, std::vector<std::string>> rows[] = {
        {"unknown type", {bytes({0x00}), bytes({0x0F}), bytes({0x80, 0x01}), bytes({0xC0})}},
        {"integer too wide", {wide, below, bytes({0x15}) + std::string(32, '\0')}},
        {"real of unknown width", {bytes({0x21, 0, 0})}},
        {"malformed date", {bytes({0x32, 0, 0, 0, 0}), nan}},
        {"malformed string", {bytes({0x51, 0x80}), bytes({0x61, 0xD8, 0x00})}},
        {"object beyond the objects' end",
         {bytes({0x52, 0x61}), bytes({0x13, 0}), counted(4, 0xFFFFFFFF),
          bytes({0x6F, 0x13}) + bigEndian(std::uint64_t{1} << 63, 8),
          bytes({0xDF, 0x13}) + bigEndian(~std::uint64_t{0}, 8)}},
        {"malformed count",
         {bytes({0x5F}), bytes({0x5F, 0x14}) + std::string(16, '\0'), bytes({0x5F, 0x51, 0x61})}},
        {"reference to no object", {bytes({0xA1, 0x01})}},
        {"object inside itself", {bytes({0xA1, 0x00}), bytes({0xD1, 0x00, 0x00})}},
    };
    for (const auto& [error, objects] : rows)
        for (const std::string& object : objects)
            EXPECT_EQ("offset 8: " + std::string(error), rewritten(listOf({object})))
                << testing::PrintToString(object);
    EXPECT_EQ("offset 10: object inside itself",
              rewritten(listOf({bytes({0xA1, 0x01}), bytes({0xA1, 0x00})})));
    EXPECT_EQ("offset 8: key that is no string",
              rewritten(listOf({bytes({0xD1, 0x01, 0x01}), bytes({0x09})})));
}

TEST(PropertyListBinary, MalformedFramesAreRefused) {
    const std::string good = listOf({bytes({0x09})});
    const std::size_t trailer = good.size() - 32;
    const auto with = [&](std::size_t at, const std::string& patch) {
        return std::string(good).replace(at, patch.size(), patch);
    };
    EXPECT_EQ("<true/>\n", rewritten(good));
    const std::string huge = bigEndian(~std::uint64_t{0}, 8);
    const std::pair<std::string_view, std::vector<std::string>> rows[] = {
        {"offset 0: list too short", {"bplist00"}},
        {"offset 0: unknown version", {with(0, "bplist01")}},
        {"offset 13: width of no integer",
         {with(trailer + 6, bytes({0})), with(trailer + 6, bytes({9})), with(trailer + 7, bytes({0}))}},
        {"offset 29: reference to no object",
         {with(trailer + 8, bigEndian(0, 8)), with(trailer + 16, bigEndian(1, 8)), with(trailer + 16, huge)}},
        {"offset 13: too many objects", {with(trailer + 8, huge)}},
        {"offset 13: offset table outside the list",
         {with(trailer + 8, bigEndian(2, 8)), with(trailer + 24, bigEndian(7, 8)),
          with(trailer + 24, bigEndian(14, 8)), with(trailer + 24, huge)}},
        {"offset 9: offset outside the objects", {with(9, bigEndian(7, 4)), with(9, bigEndian(9, 4))}},
    };
    for (const auto& [error, lists] : rows)
        for (const std::string& list : lists)
            EXPECT_EQ(error, rewritten(list)) << testing::PrintToString(list);
}

// Arrays, each of which holds the next one `width` times, around a boolean.
std::string sharedTower(int levels, std::size_t width) {
    std::vector<std::string> objects;
    for (int i = 1; i <= levels; ++i)
        objects.push_back(counted(0xA, width) + std::string(width, static_cast<char>(i)));
    objects.push_back(bytes({0x09}));
    return listOf(objects);
}

TEST(PropertyListBinary, SmallFilesDoNotUnfoldIntoLargeLists) {
    EXPECT_TRUE(rewritten(sharedTower(20, 10)).ends_with(": too many values"));
    EXPECT_TRUE(rewritten(sharedTower(60, 2)).ends_with(": too many values"));
    // A thousand objects in the same bytes.
    const std::string text = counted(5, 10000) + std::string(10000, 'x');
    std::string references = counted(0xA, 1000);
    std::vector<std::size_t> offsets{8 + text.size()};
    for (int i = 1; i <= 1000; ++i) {
        references += bigEndian(static_cast<std::uint64_t>(i), 2);
        offsets.push_back(8);
    }
    EXPECT_EQ("offset 8: objects that overlap", rewritten(file(text + references, offsets, 2, 0)));
}

TEST(PropertyListBinary, LimitsHoldAtAndOnePast) {
    const auto many = [](std::size_t count) {
        return listOf({counted(0xA, count - 1) + std::string(count - 1, '\x01'), bytes({0x09})});
    };
    const auto nested = [](std::size_t depth) {
        std::vector<std::string> objects;
        for (std::size_t i = 1; i < depth; ++i)
            objects.push_back(bytes({0xA1, static_cast<int>(i)}));
        objects.push_back(bytes({0xA0}));
        return listOf(objects);
    };
    // The tower below is first met near the top, then once more at the bottom.
    const auto metTwice = [](std::size_t depth) {
        std::vector<std::string> objects{bytes({0xA2, 2, 1}), bytes({0xA1, 2})};
        for (std::size_t i = 2; i < depth - 1; ++i)
            objects.push_back(bytes({0xA1, static_cast<int>(i + 1)}));
        objects.push_back(bytes({0xA0}));
        return listOf(objects);
    };
    const auto ascii = [](std::size_t size) { return listOf({counted(5, size) + std::string(size, 'x')}); };
    const auto wide = [](std::size_t units) {
        return listOf({counted(6, units) + std::string(2 * units, '\x20')});
    };
    constexpr std::size_t kUnits = port::kPropertyListStringLimit / 3; // three bytes of UTF-8 each
    expectLimit(many, port::kPropertyListNodeLimit, "too many values");
    expectLimit(nested, port::kPropertyListDepthLimit, "nested too deep");
    expectLimit(metTwice, port::kPropertyListDepthLimit, "nested too deep");
    expectLimit(ascii, port::kPropertyListStringLimit, "string too long");
    expectLimit(wide, kUnits, "string too long");
}

TEST(PropertyListBinary, DamageIsRefusedOrReadNeverFatal) {
    const std::string good = fileText(TEST_FOLDER "/data/golden.bin");
    const std::string xml = fileText(TEST_FOLDER "/data/golden.xml");
    for (std::size_t size = 0; size < good.size(); ++size)
        EXPECT_FALSE(rewritten(good.substr(0, size)).starts_with('<')) << size;
    for (std::size_t size = 0; size + 1 < xml.size(); ++size)
        EXPECT_FALSE(rewritten(xml.substr(0, size)).starts_with('<')) << size;
    std::mt19937 random(20261122);
    for (int round = 0; round < 5000; ++round) {
        std::string damaged = round % 2 == 0 ? good : xml;
        for (auto changes = 1 + random() % 3; changes != 0; --changes)
            damaged[random() % damaged.size()] = static_cast<char>(random() % 256);
        const std::string result = rewritten(damaged);
        if (result.starts_with('<')) { // what is read once and written is read again
            EXPECT_EQ(result, rewritten("<plist>" + result + "</plist>")) << round;
        }
    }
}

} // namespace
