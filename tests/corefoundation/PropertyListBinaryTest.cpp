#include "Support.h"

namespace {

using namespace std::string_literals;

std::string bigEndian(std::uint64_t value, std::size_t width) {
    std::string bytes;
    for (std::size_t i = width; i-- > 0;)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

// The list of these bytes of objects, the first offset on top; offsets have four bytes, references one.
std::string file(const std::string& objects, const std::vector<std::size_t>& offsets) {
    std::string bytes = "bplist00" + objects;
    for (const std::size_t offset : offsets)
        bytes += bigEndian(offset, 4);
    return bytes + "\0\0\0\0\0\0\4\1"s + bigEndian(offsets.size(), 8) + bigEndian(0, 8) +
           bigEndian(8 + objects.size(), 8);
}

std::string listOf(const std::vector<std::string>& objects) {
    std::string all;
    std::vector<std::size_t> offsets;
    for (const std::string& object : objects) {
        offsets.push_back(8 + all.size());
        all += object;
    }
    return file(all, offsets);
}

TEST(PropertyListBinary, ListsAreReadOrRefusedWithTheirOffset) {
    const auto with = [](const std::string& object) { return listOf({object}); };
    const std::string good = with("\x09");
    const auto trailer = [&](std::size_t at, const std::string& patch) {
        return std::string(good).replace(good.size() - 32 + at, patch.size(), patch);
    };
    const std::string none(8, '\0');
    const std::string ones(8, '\xFF');
    expectResults({
        {"<integer>-1</integer>\n", {with("\x13" + ones), with("\x14" + ones + ones)}},
        {"<real>1.5</real>\n", {with("\x22\x3F\xC0\0\0"s)}},
        {"<data>\nqw==\n</data>\n", {with("\x4F\x12\0\0\0\1\xAB"s)}},
        {"offset 8: unknown type", {with("\0"s), with("\x0F"), with("\x80\x01"), with("\xC0")}},
        {"offset 8: integer too wide", {with("\x14\0\0\0\0\0\0\0\1"s + none), with("\x14" + ones + none)}},
        {"offset 8: real of unknown width", {with("\x21\0\0"s)}},
        {"offset 8: malformed date", {with("\x32\0\0\0\0"s), with("\x33\x7F\xF8\0\0\0\0\0\0"s)}},
        {"offset 8: malformed string", {with("\x51\x80"), with("\x61\xD8\0"s)}},
        {"offset 8: object beyond the objects' end",
         {with("\x52\x61"), with("\x13\0"s), with("\x6F\x13\x80\0\0\0\0\0\0\0"s), with("\xDF\x13" + ones)}},
        {"offset 8: malformed count", {with("\x5F"), with("\x5F\x14" + none + none), with("\x5F\x51\x61")}},
        {"offset 8: reference to no object", {with("\xA1\x01")}},
        {"offset 8: object inside itself", {with("\xA1\0"s), with("\xD1\0\0"s)}},
        {"offset 10: object inside itself", {listOf({"\xA1\x01", "\xA1\0"s})}},
        {"offset 8: key that is no string", {listOf({"\xD1\x01\x01", "\x09"})}},
        {"offset 8: objects that overlap", {file("\x54text\xA2\x01\x02", {13, 8, 8})}},
        {"offset 0: list too short", {"bplist00"}},
        {"offset 0: unknown version", {"bplist01" + good.substr(8)}},
        {"offset 13: width of no integer", {trailer(6, "\0"s), trailer(6, "\x09"), trailer(7, "\0"s)}},
        {"offset 29: reference to no object", {trailer(16, bigEndian(1, 8)), trailer(16, ones)}},
        {"offset 13: too many objects", {trailer(8, ones)}},
        {"offset 13: offset table outside the list",
         {trailer(8, bigEndian(2, 8)), trailer(24, bigEndian(7, 8)), trailer(24, ones)}},
        {"offset 9: offset outside the objects", {file("\x09", {7}), file("\x09", {9})}},
    });
}

TEST(PropertyListBinary, LimitsHoldAtAndOnePast) {
    const auto nested = [](std::size_t depth, const std::string& top = "\xA1\x01") {
        std::vector<std::string> objects{top};
        while (objects.size() < depth)
            objects.push_back({'\xA1', static_cast<char>(objects.size() + 1)});
        objects.back() = "\xA0";
        return listOf(objects);
    };
    expectLimit("nested too deep", port::kPropertyListDepthLimit, nested);
    // The tower below is first met near the top, then once more at the bottom.
    expectLimit("nested too deep", port::kPropertyListDepthLimit,
                [&](std::size_t depth) { return nested(depth, "\xA2\x02\x01"); });
    expectLimit("too many values", port::kPropertyListNodeLimit, [](std::size_t count) {
        return listOf({"\xAF\x12" + bigEndian(count - 1, 4) + std::string(count - 1, '\x01'), "\x09"});
    });
    expectLimit("string too long", port::kPropertyListStringLimit, [](std::size_t size) {
        return listOf({"\x5F\x12" + bigEndian(size, 4) + std::string(size, 'x')});
    });
    // Sixty arrays, each of which holds the next one twice.
    std::vector<std::string> bomb;
    for (char next = 1; next <= 60; ++next)
        bomb.push_back({'\xA2', next, next});
    bomb.push_back("\x09");
    EXPECT_TRUE(rewritten(listOf(bomb)).ends_with(": too many values"));
    // Texts, keys and data count as often as they are referred to. Four quarters are read, and too long when written.
    const std::string quarter = "\x12" + bigEndian(1 << 20, 4) + std::string(1 << 20, 'x');
    const std::string text = "\x5F" + quarter;
    expectResults(
        {{"list too long", {listOf({"\xA4\1\1\1\1", text})}},
         {"offset 8: too much text and data",
          {listOf({"\xA5\1\1\1\1\1", text}), listOf({"\xA5\1\1\1\1\1", "\x4F" + quarter}),
           listOf({"\xA3\1\1\1", "\xA2\2\2", text}), listOf({"\xD5\1\1\1\1\1\2\2\2\2\2", text, "\x09"})}}});
    // Three bytes of UTF-8 each.
    expectLimit("string too long", port::kPropertyListStringLimit / 3, [](std::size_t units) {
        return listOf({"\x6F\x12" + bigEndian(units, 4) + std::string(2 * units, '\x20')});
    });
}

} // namespace
