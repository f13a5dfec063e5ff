#include "Support.h"

#include <iconv.h>
#include <optional>

namespace {

using namespace std::string_literals;

String make(std::string_view bytes, CFStringEncoding encoding) {
    return String(CFStringCreateWithBytes(nullptr, bytesOf(bytes).data(), static_cast<CFIndex>(bytes.size()),
                                          encoding, false));
}

// The bytes are decoded as the host's converter does it, or refused as it does, and encoded to the same again.
void expectAgreement(iconv_t host, std::string bytes, CFStringEncoding encoding) {
    std::u16string units(16, u'\0');
    char* in = bytes.data();
    std::size_t left = bytes.size();
    char* out = reinterpret_cast<char*>(units.data());
    std::size_t room = 2 * units.size();
    iconv(host, nullptr, nullptr, nullptr, nullptr);
    const bool accepted = iconv(host, &in, &left, &out, &room) == 0;
    units.resize(units.size() - room / 2);
    // The host refuses the five codes without a character; here they are controls.
    if (!accepted && encoding == kCFStringEncodingWindowsLatin1)
        units.assign(1, static_cast<unsigned char>(bytes[0]));
    const String string = make(bytes, encoding);
    ASSERT_EQ(accepted || encoding != kCFStringEncodingUTF8, bool{string}) << testing::PrintToString(bytes);
    if (!string)
        return;
    ASSERT_TRUE(CFEqual(String(__CFString::make(units)).get(), string.get()))
        << testing::PrintToString(bytes);
    char back[8];
    ASSERT_TRUE(CFStringGetCString(string.get(), back, sizeof back, encoding));
    ASSERT_EQ(bytes, std::string(back, bytes.size()));
}

TEST(CFString, AgreesWithTheHostOnEveryEdgeOfUtf8AndEveryLatinCode) {
    const auto edges = "\0\x7F\x80\x8F\x90\x9F\xA0\xBF\xC1\xC2\xDF\xE0\xE1\xED\xEF\xF0\xF1\xF4\xF5"s;
    const iconv_t utf8 = iconv_open("UTF-16LE", "UTF-8");
    for (const char a : edges)
        for (const char b : edges)
            for (const char c : edges)
                for (const char d : edges)
                    expectAgreement(utf8, {a, b, c, d}, kCFStringEncodingUTF8);
    iconv_close(utf8);
    for (const auto& [encoding, name] : {std::pair{kCFStringEncodingISOLatin1, "ISO-8859-1"},
                                         std::pair{kCFStringEncodingWindowsLatin1, "CP1252"}}) {
        const iconv_t host = iconv_open("UTF-16LE", name);
        for (int code = 0; code < 256; ++code)
            expectAgreement(host, std::string(1, static_cast<char>(code)), encoding);
        iconv_close(host);
    }
}

TEST(CFString, TextFitsABufferExactlyOrLeavesAnEmptyOne) {
    // The size with terminator; none when the text cannot be converted.
    const std::tuple<std::u16string, CFStringEncoding, std::optional<CFIndex>> rows[] = {
        {u"a\u00e9\u20ac\U0001F600", kCFStringEncodingUTF8, 11},
        {u"abc", kCFStringEncodingUnicode, 8},
        {std::u16string{0xD83D}, kCFStringEncodingUTF8, std::nullopt},
        {std::u16string{0xDE00, 0xD83D}, kCFStringEncodingUTF8, std::nullopt},
        {u"\u0100", kCFStringEncodingISOLatin1, std::nullopt},
        {u"\u0080", kCFStringEncodingWindowsLatin1, std::nullopt},
        {u"abc", 0x0A00, std::nullopt},
    };
    for (const auto& [text, encoding, needed] : rows) {
        const String string(__CFString::make(text));
        const CFIndex terminator = encoding == kCFStringEncodingUnicode ? 2 : 1;
        for (CFIndex size = -1; size < 14; ++size) {
            // At an odd address, and with a guard behind.
            std::string room(18, '#');
            const bool fits = needed && size >= *needed;
            EXPECT_EQ(fits, CFStringGetCString(string.get(), room.data() + 1, size, encoding) != 0)
                << testing::PrintToString(text) << " in " << size;
            const CFIndex written = fits ? *needed : size >= terminator ? terminator : 0;
            EXPECT_EQ(written == 0 ? '#' : '\0', room[static_cast<std::size_t>(written)]) << size;
            EXPECT_EQ('#', room[static_cast<std::size_t>(1 + written)]) << size;
        }
    }
    EXPECT_FALSE(make("abc", kCFStringEncodingUnicode)) << "odd";
    EXPECT_FALSE(make("abc", 0x0A00)) << "unknown";
}

} // namespace
