#include "Support.h"

#include <array>
#include <gtest/gtest.h>
#include <iconv.h>
#include <optional>
#include <vector>

namespace {

using String = port::CFRef<CFStringRef>;

String make(std::string_view bytes, CFStringEncoding encoding) {
    return String(CFStringCreateWithBytes(nullptr, bytesOf(bytes).data(), static_cast<CFIndex>(bytes.size()),
                                          encoding, false));
}

std::u16string unitsOf(CFStringRef string) {
    std::vector<UniChar> units(static_cast<std::size_t>(CFStringGetLength(string)));
    CFStringGetCharacters(string, CFRangeMake(0, CFStringGetLength(string)), units.data());
    return {units.begin(), units.end()};
}

// What the host's converter makes of the bytes; none when it refuses any of them.
class HostDecoder {
public:
    explicit HostDecoder(const char* encoding) : converter_(iconv_open("UTF-16LE", encoding)) {}
    HostDecoder(const HostDecoder&) = delete;
    HostDecoder& operator=(const HostDecoder&) = delete;
    ~HostDecoder() { iconv_close(converter_); }

    std::optional<std::u16string> decode(std::string bytes) {
        std::array<char16_t, 16> units{};
        char* in = bytes.data();
        std::size_t left = bytes.size();
        char* out = reinterpret_cast<char*>(units.data());
        std::size_t room = sizeof units;
        iconv(converter_, nullptr, nullptr, nullptr, nullptr);
        if (iconv(converter_, &in, &left, &out, &room) == static_cast<std::size_t>(-1))
            return std::nullopt;
        return std::u16string(units.data(), (sizeof units - room) / sizeof(char16_t));
    }

private:
    iconv_t converter_;
};

TEST(CFString, Utf8AgreesWithTheHostOnEveryEdgeOfTheEncoding) {
    const std::string edges(
        "\x00\x41\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3"
        "\xF4\xF5\xF8\xFF",
        26);
    HostDecoder host("UTF-8");
    std::size_t accepted = 0;
    const std::size_t all = edges.size() * edges.size() * edges.size() * edges.size();
    for (std::size_t n = 0; n < all; ++n) {
        std::string bytes;
        for (std::size_t rest = n, i = 0; i < 4; ++i, rest /= edges.size())
            bytes += edges[rest % edges.size()];
        const auto expected = host.decode(bytes);
        const String string = make(bytes, kCFStringEncodingUTF8);
        ASSERT_EQ(expected.has_value(), static_cast<bool>(string)) << testing::PrintToString(bytes);
        if (!expected)
            continue;
        ++accepted;
        ASSERT_EQ(*expected, unitsOf(string.get())) << testing::PrintToString(bytes);
        std::string back;
        ASSERT_TRUE(port::copyUtf8(string.get(), back));
        ASSERT_EQ(bytes, back);
    }
    EXPECT_GT(accepted, 100U);
}

TEST(CFString, LatinEncodingsAgreeWithTheHostBothWays) {
    HostDecoder iso("ISO-8859-1");
    HostDecoder windows("CP1252");
    for (int code = 0; code < 256; ++code) {
        const std::string byte(1, static_cast<char>(code));
        for (const auto& [encoding, host] : {std::pair{kCFStringEncodingISOLatin1, &iso},
                                             std::pair{kCFStringEncodingWindowsLatin1, &windows}}) {
            // The host refuses the five codes without a character; here they are controls.
            const auto expected = host->decode(byte).value_or(std::u16string(1, static_cast<char16_t>(code)));
            const String string = make(byte, encoding);
            EXPECT_EQ(expected, unitsOf(string.get())) << code;
            char back[2] = "?";
            EXPECT_TRUE(CFStringGetCString(string.get(), back, sizeof back, encoding)) << code;
            EXPECT_EQ(byte, std::string(back, 1)) << code;
        }
    }
}

TEST(CFString, GetCStringFitsExactlyOrLeavesAnEmptyText) {
    const std::u16string lone(1, char16_t{0xD83D});
    const std::u16string reversed{0xDE00, 0xD83D};
    const struct {
        std::u16string text;
        CFStringEncoding encoding;
        std::optional<CFIndex> needed; // with terminator; none when it cannot be converted
    } rows[] = {
        {u"abc", kCFStringEncodingUTF8, 4},
        {u"a\u00e9\u20ac\U0001F600", kCFStringEncodingUTF8, 11},
        {u"abc", kCFStringEncodingUnicode, 8},
        {u"\U0001F600", kCFStringEncodingUnicode, 6},
        {lone, kCFStringEncodingUnicode, 4},
        {lone, kCFStringEncodingUTF8, std::nullopt},
        {reversed, kCFStringEncodingUTF8, std::nullopt},
        {u"\u00ff", kCFStringEncodingISOLatin1, 2},
        {u"\u0100", kCFStringEncodingISOLatin1, std::nullopt},
        {u"\u20ac", kCFStringEncodingWindowsLatin1, 2},
        {u"\u0080", kCFStringEncodingWindowsLatin1, std::nullopt},
        {u"abc", 0x0A00, std::nullopt},
    };
    for (const auto& row : rows) {
        const String string(__CFString::make(row.text));
        const CFIndex terminator = row.encoding == kCFStringEncodingUnicode ? 2 : 1;
        for (CFIndex size = -1; size < 14; ++size) {
            // At an odd address, and with a guard behind.
            std::array<char, 18> room;
            room.fill('#');
            const bool fits = row.needed && size >= *row.needed;
            EXPECT_EQ(fits, CFStringGetCString(string.get(), room.data() + 1, size, row.encoding) != 0)
                << testing::PrintToString(row.text) << " in " << size;
            const CFIndex written = fits ? *row.needed : size >= terminator ? terminator : 0;
            EXPECT_EQ(written == 0 ? '#' : '\0', room[static_cast<std::size_t>(written)]) << size;
            EXPECT_EQ('#', room[static_cast<std::size_t>(1 + written)]) << size;
        }
    }
}

TEST(CFString, PascalTextHasALengthByteAndFitsOrIsEmpty) {
    const String name(
        CFStringCreateWithCString(nullptr, std::string(63, 'n').c_str(), CFStringGetSystemEncoding()));
    unsigned char buffer[64];
    EXPECT_TRUE(CFStringGetPascalString(name.get(), buffer, 64, CFStringGetSystemEncoding()));
    EXPECT_EQ(63, buffer[0]);
    EXPECT_EQ('n', buffer[63]);
    EXPECT_FALSE(CFStringGetPascalString(name.get(), buffer, 63, CFStringGetSystemEncoding()));
    EXPECT_EQ(0, buffer[0]);
}

TEST(CFString, ZeroBytesStayAndOddUtf16IsRefused) {
    EXPECT_EQ(5, CFStringGetLength(make(std::string_view("ab\0cd", 5), kCFStringEncodingUTF8).get()));
    EXPECT_FALSE(make("abc", kCFStringEncodingUnicode));
    EXPECT_FALSE(make("abc", 0x0A00));
}

} // namespace
