#include "strings/LCharsets.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <thread>

namespace {

using Wide = std::wstring;
using Unicode = std::vector<unsigned short>;
using String = LStringLongTemplate<char>;
using UnicodeString = LStringLongTemplate<unsigned short>;

// A buffer of this size, which nothing may be written behind.
template <typename TText>
struct Buffer {
    explicit Buffer(std::size_t size) : units(size + 1, '#') {}
    // What was left before the terminator: "#" when a buffer of size 0 was left alone.
    TText Text() {
        EXPECT_EQ(units.back(), '#') << "written behind the end";
        return TText(units.begin(), std::find(units.begin(), units.end(), 0));
    }
    TText units;
};

template <typename TText = std::string, typename TUnit>
TText TextOf(const LStringLongTemplate<TUnit>& string) {
    return TText(string.GetText(), string.GetText() + string.GetLength());
}

TEST(Charsets, DecodeStopsWhereTheContractSays) {
    const std::tuple<const char*, unsigned long, int, Wide> rows[] = {
        {"a", 0, 1, L"#"},
        {"", 1, 0, L""},
        {"\xE2\x82\xAC", 4, 0, L"\x20AC"},
        {"\xE2\x82\xAC", 3, 1, L""},
        {"ab", 2, 1, L"a"},
        {"A\xC3", 9, 2, L"A"},
        {"A\xC3", 3, 1, L"A"}, // the limit is asked before the bytes are looked at
        {"A\xC3", 4, 2, L"A"},
        {"\xF0\x90\x80\x80", 5, 0, L"\U00010000"},
        {"\xF8\x80\x80\x80\x80", 6, 2, L""},
        {"\xF8\x80\x80\x80\x80", 5, 1, L""},
        {"\xFC", 7, 2, L""},
        {"\xFF", 6, 1, L""}, // announces six bytes, not more
        {"ab\x80z", 9, 2, L"ab"},
    };
    for (const auto& [text, limit, result, values] : rows) {
        SCOPED_TRACE(testing::PrintToString(text) + " limit " + std::to_string(limit));
        Buffer<Wide> to(limit);
        EXPECT_EQ(LCopyUTF32FromUTF8(to.units.data(), text, limit), result);
        EXPECT_EQ(to.Text(), values);
    }
}

TEST(Charsets, EncodeReplacesWhatNoCharacterCanBe) {
    const std::tuple<Wide, int, std::string> rows[] = {
        {L"", 0, ""},
        {L"\x7F\x80\x7FF\x800", 0, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80"},
        {{wchar_t{0xD800}}, 0, "\xED\xA0\x80"},
        {{wchar_t{0x10000}, wchar_t{0x10FFFF}}, 0, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {{wchar_t{0x110000}, L'z'}, 2, "\xEF\xBF\xBDz"},
        {{wchar_t{-1}}, 2, "\xEF\xBF\xBD"},
        {wchar_t{-1} + Wide(8191, L'x'), 2, "\xEF\xBF\xBD" + std::string(8191, 'x')},
    };
    for (const auto& [values, result, text] : rows) {
        Buffer<std::string> to(4 * values.size() + 1);
        EXPECT_EQ(LCopyUTF8FromUTF32(to.units.data(), values.c_str(), 0), result) << text;
        EXPECT_EQ(to.Text(), text);
    }
}

TEST(Charsets, SizedUnicodeFormsCutAndTerminate) {
    const std::tuple<std::string, unsigned long, Unicode> decoded[] = {
        {"a", 0, {'#'}},      {"abc", 1, {}},          {"abc", 3, {'a', 'b'}},
        {"\xC3\xA9", 2, {}},  {"\xC3\xA9", 3, {0xE9}}, {"\xF0\x9F\x98\x80", 5, {0xF600}},
        {"a\xFFz", 9, {'a'}},
    };
    for (const auto& [text, size, units] : decoded) {
        Buffer<Unicode> to(size);
        LCopyUnicodeFromUTF8(to.units.data(), text.c_str(), size);
        EXPECT_EQ(to.Text(), units) << text << " size " << size;
    }
    const std::tuple<Unicode, unsigned long, std::string> encoded[] = {
        {{'a', 0}, 0, "#"},
        {{0x20AC, 0}, 1, ""},
        {{0x20AC, 0}, 3, "\xE2\x82"},
        {{0x20AC, 0}, 4, "\xE2\x82\xAC"},
        {{'a', 0xD83D, 0xDE00, 0}, 8, "a\xED\xA0\xBD\xED\xB8\x80"},
        {{'a', 'b', 0}, 2, "a"},
    };
    for (const auto& [units, size, text] : encoded) {
        Buffer<std::string> to(size);
        LCopyUTF8FromUnicode(to.units.data(), units.data(), size);
        EXPECT_EQ(to.Text(), text) << "size " << size;
    }
    Buffer<Unicode> units(3);
    LCopyUnicodeFromUTF32(units.units.data(), L"\U0001F600xyz", 3);
    EXPECT_EQ(units.Text(), (Unicode{0xF600, 'x'}));
    Buffer<Wide> values(3);
    LCopyUTF32FromUnicode(values.units.data(), Unicode{0xD83D, 'x', 'y', 0}.data(), 3);
    EXPECT_EQ(values.Text(), (Wide{wchar_t{0xD83D}, L'x'}));

    Buffer<Unicode> path(LPathBufferSize);
    LCopyUnicodeFromUTF8(path.units.data(), (std::string(257, 'a') + "\xC3\xA9z").c_str());
    EXPECT_EQ(path.Text().size(), 258U);
    Buffer<std::string> accents(LPathBufferSize);
    LCopyUTF8FromUnicode(accents.units.data(), Unicode(LPathBufferSize, 0xE9).data());
    EXPECT_EQ(accents.Text().size(), 259U);
}

TEST(Charsets, GrowableUnicodeForms) {
    const std::tuple<std::string, Unicode, std::string> rows[] = {
        {"", {}, ""},
        {"a\xC3\xA9\xF0\x9F\x98\x80", {'a', 0xE9, 0xF600}, "a\xC3\xA9\xEF\x98\x80"},
        {"a\xF0\x90\x80\x80z", {'a'}, "a"}, // its low 16 bits are 0
        {std::string(5000, 'x') + "\xFF", Unicode(5000, 'x'), std::string(5000, 'x')},
    };
    for (const auto& [text, expected, bytes] : rows) {
        String source, back, copied;
        UnicodeString units;
        source = text.c_str();
        LCopyUnicodeFromUTF8(units, source);
        EXPECT_EQ(TextOf<Unicode>(units), expected) << text;
        LCopyUTF8FromUnicode(back, units);
        LCopyFromUnicode(copied, units.GetText());
        for (const String* string : {&back, &copied}) {
            EXPECT_EQ(TextOf(*string), bytes);
            EXPECT_EQ(string->GetCapacity(), 6 * expected.size() + 1);
        }
    }
}

TEST(Charsets, BigEndian) {
    const unsigned short text[] = {'a', 0x1234, 0, 'x'};
    const auto copy = [&](unsigned long n, bool terminate) {
        std::string bytes(10, '#');
        auto* const odd = reinterpret_cast<unsigned short*>(&bytes[1]); // no unit needs to be aligned
        const unsigned long units = LCopyToBigEndianUnicode(odd, text, n, terminate);
        return std::pair(units, bytes);
    };
    using namespace std::string_literals;
    EXPECT_EQ(copy(4, false), std::pair(4UL, "#\0a\x12\x34\0 \0 #"s));
    EXPECT_EQ(copy(3, true), std::pair(2UL, "#\0a\x12\x34\0\0###"s));
    EXPECT_EQ(copy(1, true), std::pair(1UL, "#\0a\0\0#####"s));
}

TEST(Charsets, IndexesByLeadBytes) {
    // A stray byte, and an end inside a sequence.
    const std::string text = "\xC3\xA9z\x80\xE4\xB8\xAD\xF0\x9F";
    const unsigned long byteOfChar[] = {0, 2, 3, 4, 7, 9, 9, 9, 9, 9, 9, 9};
    const unsigned long charsBefore[] = {0, 1, 1, 2, 3, 4, 4, 4, 5, 5, 5, 5};
    const unsigned long copied[] = {0, 0, 0, 2, 3, 4, 4, 4, 7, 7, 7, 7};
    for (unsigned long n = 0; n < std::size(copied); ++n) {
        SCOPED_TRACE(n);
        EXPECT_EQ(LCharsetsUTF8CharIndexToByteIndex(text.c_str(), n), byteOfChar[n]);
        EXPECT_EQ(LCharsetsUTF8ByteIndexToCharIndex(text.c_str(), n), charsBefore[n]);
        Buffer<std::string> to(n);
        EXPECT_EQ(utf8strlcpy(to.units.data(), text.c_str(), n), copied[n]);
        EXPECT_EQ(to.Text(), n == 0 ? "#" : text.substr(0, copied[n]));
    }
    EXPECT_EQ(utf8strlen("\xFF-----\xF8----"), 2U);
}

// Sized forms, and their growable twins where there are any.
TEST(Charsets, CodePages) {
    using Sized = void (*)(char*, const char*, unsigned long);
    using Growable = void (*)(String&, const char*);
    const std::string longText(5000, 'x');
    const std::tuple<const char*, Sized, Growable, std::string, unsigned long, std::string> rows[] = {
        {"from 8859-1", LCopyFromISO88591, LCopyFromISO88591, "a\xE9", 4, "a\xC3\xA9"},
        {"from 8859-1, cut", LCopyFromISO88591, nullptr, "a\xE9", 3, "a"},
        {"from 8859-1, none", LCopyFromISO88591, nullptr, "a", 0, "#"},
        {"to 8859-1", LCopyToISO88591, LCopyToISO88591, "a\xC3\xA9", 9, "a\xE9"},
        {"to 8859-1, outside", LCopyToISO88591, LCopyToISO88591, "ab\xE2\x82\xAC", 9, "ab"},
        {"to 8859-1, invalid", LCopyToISO88591, LCopyToISO88591, "ab\xFFz", 9, "ab"},
        {"from 1252", LCopyFromWIN1252, LCopyFromWIN1252, "\x80", 9, "\xC2\x80"},
        {"to 1252", LCopyToWIN1252, LCopyToWIN1252, "\xC2\x80\xE2\x82\xAC", 9, "\x80"},
        {"from 8859-5", LCopyFromISO88595, LCopyFromISO88595, "\xB6z", 9, "\xD0\x96z"},
        {"to 8859-5", LCopyToISO88595, LCopyToISO88595, "\xD0\x96", 9, "\xB6"},
        {"from Shift-JIS", LCopyFromSHIFTJIS932, LCopyFromSHIFTJIS932, "\x83\x41", 9, "\x83\x41"},
        {"to Shift-JIS", LCopyToSHIFTJIS932, LCopyToSHIFTJIS932, "\x83\x41", 9, "\x83\x41"},
        {"to Shift-JIS, cut", LCopyToSHIFTJIS932, nullptr, "\x83\x41", 2, "\x83"},
        {"from EUC-KR", LCopyFromEUCKR, LCopyFromEUCKR, "\xB0\xA1", 9, "\xB0\xA1"},
        {"to EUC-KR", LCopyToEUCKR, LCopyToEUCKR, "\xB0\xA1", 9, "\xB0\xA1"},
        {"to Ansi", LCopyAnsiFromUTF8, nullptr, "a\xC3\xA9", 4, "a\xE9"},
        {"to Ansi, source cut", LCopyAnsiFromUTF8, nullptr, "a\xC3\xA9", 3, "a"},
        {"to Ansi, outside", LCopyAnsiFromUTF8, nullptr, "a\xE2\x82\xAC", 9, ""},
        {"to Ansi, long", LCopyAnsiFromUTF8, nullptr, longText, 5001, longText},
        {"to Ansi, none", LCopyAnsiFromUTF8, nullptr, "a", 0, "#"},
        {"from Ansi", LCopyUTF8FromAnsi, nullptr, "a\x80", 5, "a\xE2\x82\xAC"},
        {"from Ansi, cut", LCopyUTF8FromAnsi, nullptr, "a\x80", 3, "a\xE2"},
        {"from Ansi, too long", LCopyUTF8FromAnsi, nullptr, "a\x80", 2, ""},
        {"from Ansi, none", LCopyUTF8FromAnsi, nullptr, "a", 0, "#"},
    };
    for (const auto& [name, sized, growable, source, size, text] : rows) {
        SCOPED_TRACE(name);
        Buffer<std::string> to(size);
        sized(to.units.data(), source.c_str(), size);
        EXPECT_EQ(to.Text(), text);
        if (growable == nullptr)
            continue;
        String string;
        growable(string, source.c_str());
        EXPECT_EQ(TextOf(string), text);
    }
}

// The kept converters: more pairs than are kept, a fault before each reuse, and a thread that ends.
TEST(Charsets, ConvertersAreReusedClean) {
    const auto convert = [](const char* text, const char* code) {
        Buffer<std::string> to(std::strlen(text) + 1);
        LCopyIconvFixedLength(to.units.data(), text, code, "UTF-8");
        return to.Text();
    };
    const auto use = [&] {
        for (const char* code : {"ISO-8859-1", "ISO-8859-2", "ISO-8859-5", "ISO-8859-7", "ISO-8859-9"}) {
            EXPECT_EQ(convert("a\xE4", code), "a") << code;
            EXPECT_EQ(convert("b", code), "b") << code;
        }
        EXPECT_EQ(convert("a", "no such code set"), "");
    };
    std::thread(use).join();
    use();
    use();
}

TEST(Charsets, AnsiStrings) {
    const std::tuple<const char*, Unicode, std::string> rows[] = {
        {nullptr, {}, ""},
        {"a\x81\xE9", {'a', 0x81, 0xE9}, "a\x81\xE9"},
        {"a\x80", {'a', 0x20AC}, ""},
    };
    for (const auto& [text, expected, back] : rows) {
        String ansi, fromString, fromText;
        UnicodeString units;
        if (text != nullptr)
            ansi = text;
        LCopyUnicodeFromAnsi(units, ansi);
        EXPECT_EQ(TextOf<Unicode>(units), expected);
        LCopyAnsiFromUnicode(fromString, units);
        EXPECT_EQ(TextOf(fromString), back);
        LCopyAnsiFromUnicode(fromText, units.GetText());
        EXPECT_EQ(TextOf(fromText), back);
    }
}

} // namespace
