#include "strings/LCharsets.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

using Unicode = std::vector<unsigned short>;
using String = LStringLongTemplate<char>;

// Sized destinations have one unit more than the call is told: a "#" that is to stay.

TEST(Charsets, DecodeStopsWhereTheContractSays) {
    const std::tuple<const char*, unsigned long, int, std::wstring> rows[] = {
        {"a", 0, 1, L"#"},
        {"", 1, 0, L""},
        {"\xE2\x82\xAC", 4, 0, L"\x20AC"},
        {"\xE2\x82\xAC", 3, 1, L""},
        {"A\xC3", 3, 1, L"A"}, // the limit is asked before the bytes are looked at
        {"A\xC3", 4, 2, L"A"},
        {"\xF8\x80\x80\x80\x80", 6, 2, L""},
        {"\xF8\x80\x80\x80\x80", 5, 1, L""},
        {"\xFF", 7, 2, L""}, // announces six bytes, not more
        {"\xFF", 6, 1, L""},
    };
    for (const auto& [text, limit, result, values] : rows) {
        SCOPED_TRACE(testing::PrintToString(text) + " limit " + std::to_string(limit));
        std::wstring to(limit + 1, L'#');
        EXPECT_EQ(LCopyUTF32FromUTF8(to.data(), text, limit), result);
        EXPECT_EQ(to.c_str(), values);
        EXPECT_EQ(to.back(), L'#');
    }
}

TEST(Charsets, EncodeReplacesWhatNoCharacterCanBe) {
    const std::tuple<std::wstring, int, std::string> rows[] = {
        {{L'a', wchar_t{0xD800}}, 0, "a\xED\xA0\x80"},
        {{wchar_t{0x110000}, L'z'}, 2, "\xEF\xBF\xBDz"},
        {wchar_t{-1} + std::wstring(8191, L'x'), 2, "\xEF\xBF\xBD" + std::string(8191, 'x')},
    };
    for (const auto& [values, result, text] : rows) {
        std::string to(4 * values.size() + 1, '#');
        EXPECT_EQ(LCopyUTF8FromUTF32(to.data(), values.c_str(), 0), result) << text;
        EXPECT_EQ(to.c_str(), text);
    }
}

TEST(Charsets, SizedUnicodeFormsCutAndTerminate) {
    const std::tuple<const char*, unsigned long, Unicode> decoded[] = {
        {"a", 0, {'#'}},
        {"\xC3\xA9", 2, {0}},
        {"\xC3\xA9", 3, {0xE9, 0}},
        {"\xF0\x9F\x98\x80", 5, {0xF600, 0}},
        {"a\xFFz", 9, {'a', 0}},
    };
    for (const auto& [text, size, units] : decoded) {
        Unicode to(size + 1, '#');
        LCopyUnicodeFromUTF8(to.data(), text, size);
        EXPECT_EQ(to.back(), '#');
        to.resize(units.size());
        EXPECT_EQ(to, units) << text << " size " << size;
    }
    const std::tuple<Unicode, unsigned long, std::string> encoded[] = {
        {{'a', 0}, 0, "#"},
        {{0x20AC, 0}, 1, ""},
        {{0x20AC, 0}, 3, "\xE2\x82"},
        {{0x20AC, 0}, 4, "\xE2\x82\xAC"},
    };
    for (const auto& [units, size, text] : encoded) {
        std::string to(size + 1, '#');
        LCopyUTF8FromUnicode(to.data(), units.data(), size);
        EXPECT_EQ(to.c_str(), text) << "size " << size;
        EXPECT_EQ(to.back(), '#');
    }
    const std::wstring letters = L"\U0001F600bcdefghijklmnopqrstuvwxyz";
    Unicode units(22, '#');
    LCopyUnicodeFromUTF32(units.data(), letters.c_str(), 21);
    EXPECT_EQ((Unicode{units[0], units[19], units[20], units[21]}), (Unicode{0xF600, 't', 0, '#'}));
    std::wstring values(20, L'#');
    units[0] = 0xD83D;
    LCopyUTF32FromUnicode(values.data(), units.data(), 19);
    EXPECT_EQ(values, wchar_t{0xD83D} + letters.substr(1, 17) + std::wstring(L"\0#", 2));
    std::string path(LPathBufferSize + 1, '#');
    LCopyUTF8FromUnicode(path.data(), Unicode(LPathBufferSize, 0xE9).data());
    EXPECT_EQ(path.find('\0'), LPathBufferSize - 1UL);
}

TEST(Charsets, GrowableUnicodeForms) {
    struct Forms {
        void (*decode)(LStringLongTemplate<unsigned short>&, const String&);
        void (*encode)(String&, const LStringLongTemplate<unsigned short>&);
        void (*encodeText)(String&, const unsigned short*);
    };
    const Forms utf8 = {LCopyUnicodeFromUTF8, LCopyUTF8FromUnicode, LCopyFromUnicode};
    const Forms ansi = {LCopyUnicodeFromAnsi, LCopyAnsiFromUnicode, LCopyAnsiFromUnicode};
    const std::tuple<Forms, std::string, Unicode, std::string> rows[] = {
        {utf8, "", {}, ""},
        {utf8, "a\xC3\xA9\xF0\x9F\x98\x80", {'a', 0xE9, 0xF600}, "a\xC3\xA9\xEF\x98\x80"},
        {utf8, "a\xF0\x90\x80\x80z", {'a'}, "a"}, // its low 16 bits are 0
        {utf8, std::string(5000, 'x') + "\xFF", Unicode(5000, 'x'), std::string(5000, 'x')},
        {ansi, "", {}, ""},
        {ansi, "a\x81\xE9", {'a', 0x81, 0xE9}, "a\x81\xE9"},
        {ansi, "a\x80", {'a', 0x20AC}, ""},
    };
    for (const auto& [forms, text, expected, back] : rows) {
        String source, encoded, encodedText;
        LStringLongTemplate<unsigned short> units;
        if (!text.empty())
            source = text.c_str();
        forms.decode(units, source);
        EXPECT_EQ(Unicode(units.GetText(), units.GetText() + units.GetLength()), expected) << text;
        forms.encode(encoded, units);
        EXPECT_EQ(std::string(encoded.GetText(), encoded.GetLength()), back) << text;
        forms.encodeText(encodedText, units.GetText());
        EXPECT_EQ(std::string(encodedText.GetText(), encodedText.GetLength()), back) << text;
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

TEST(Charsets, UnitsNeedNotBeAligned) {
    const std::wstring text(300, L'\U00010101');
    std::string bytes(4 * text.size() + 9, '#'), utf8(4 * text.size() + 1, '#');
    auto* const odd = reinterpret_cast<wchar_t*>(&bytes[1]);
    std::copy_n(reinterpret_cast<const char*>(text.c_str()), 4 * text.size() + 4, &bytes[1]);
    LCopyUTF8FromUTF32(utf8.data(), odd, 0);
    EXPECT_EQ(LCopyUTF32FromUTF8(odd, utf8.data(), utf8.size()), 0);
    EXPECT_EQ(utf8strlen(utf8.c_str()), text.size());
}

// Sized forms, and their growable twins where there are any.
TEST(Charsets, CodePages) {
    using Sized = void (*)(char*, const char*, unsigned long);
    using Growable = void (*)(String&, const char*);
    const std::tuple<const char*, Sized, Growable, std::string, unsigned long, std::string> rows[] = {
        {"from 8859-1", LCopyFromISO88591, LCopyFromISO88591, "a\xE9", 4, "a\xC3\xA9"},
        {"from 8859-1, cut", LCopyFromISO88591, nullptr, "a\xE9", 3, "a"},
        {"to 8859-1", LCopyToISO88591, LCopyToISO88591, "a\xC3\xA9", 9, "a\xE9"},
        {"from 1252", LCopyFromWIN1252, LCopyFromWIN1252, "\x80", 9, "\xC2\x80"},
        {"to 1252", LCopyToWIN1252, LCopyToWIN1252, "\xC2\x80\xE2\x82\xAC", 9, "\x80"},
        {"from 8859-5", LCopyFromISO88595, LCopyFromISO88595, "\xB6z", 9, "\xD0\x96z"},
        {"to 8859-5", LCopyToISO88595, LCopyToISO88595, "\xD0\x96", 9, "\xB6"},
        {"from Shift-JIS", LCopyFromSHIFTJIS932, LCopyFromSHIFTJIS932, "\x83\x41", 9, "\x83\x41"},
        {"to Shift-JIS", LCopyToSHIFTJIS932, LCopyToSHIFTJIS932, "\x83\x41", 9, "\x83\x41"},
        {"from EUC-KR", LCopyFromEUCKR, LCopyFromEUCKR, "\xB0\xA1", 9, "\xB0\xA1"},
        {"to EUC-KR", LCopyToEUCKR, LCopyToEUCKR, "\xB0\xA1", 9, "\xB0\xA1"},
        {"to Ansi", LCopyAnsiFromUTF8, nullptr, "a\xC3\xA9", 4, "a\xE9"},
        {"to Ansi, source cut", LCopyAnsiFromUTF8, nullptr, "a\xC3\xA9", 3, "a"},
        {"to Ansi, outside", LCopyAnsiFromUTF8, nullptr, "a\xE2\x82\xAC", 9, ""},
        {"to Ansi, none", LCopyAnsiFromUTF8, nullptr, "a", 0, "#"},
        {"from Ansi", LCopyUTF8FromAnsi, nullptr, "a\x80", 5, "a\xE2\x82\xAC"},
        {"from Ansi, cut", LCopyUTF8FromAnsi, nullptr, "a\x80", 3, "a\xE2"},
        {"from Ansi, too long", LCopyUTF8FromAnsi, nullptr, "a\x80", 2, ""},
        {"from Ansi, none", LCopyUTF8FromAnsi, nullptr, "a", 0, "#"},
    };
    for (const auto& [name, sized, growable, source, size, text] : rows) {
        SCOPED_TRACE(name);
        std::string to(size + 1, '#');
        sized(to.data(), source.c_str(), size);
        EXPECT_EQ(to.c_str(), text);
        EXPECT_EQ(to.back(), '#');
        if (growable == nullptr)
            continue;
        String string;
        growable(string, source.c_str());
        EXPECT_EQ(std::string(string.GetText(), string.GetLength()), text);
    }
}

TEST(Charsets, CodePagesTellWhatHadNoPlace) {
    const std::tuple<const char*, const char*, unsigned long, const char*, unsigned long> rows[] = {
        {LCodeSetISO88591, "a\xC3\xA9", 3, "a\xE9", 0},
        {LCodeSetISO88591, "a\xE2\x82\xAC\xC3\xA9z", 9, "a", 3},
        {LCodeSetISO88595, "abc", 3, "ab", 1},
        {"no such code set", "\xC3\xA9z", 9, "", 2},
        {LCodeSetISO88591, "a", 0, "#", 1},
    };
    for (const auto& [code, source, size, text, lost] : rows) {
        std::string to(size + 1, '#');
        EXPECT_EQ(LCopyIconvFixedLength(to.data(), source, size, code, LCodeSetUTF8), lost) << source;
        EXPECT_STREQ(to.c_str(), text);
    }
}

// The kept converters: more pairs than are kept, a fault before each reuse, and a thread that ends.
TEST(Charsets, ConvertersAreReusedClean) {
    const auto convert = [](const char* text, const char* code) {
        char to[] = "####";
        LCopyIconvFixedLength(to, text, code, "UTF-8");
        return std::string(to);
    };
    const auto use = [&] {
        for (const char* code : {"ISO-8859-1", "ISO-8859-2", "ISO-8859-5", "ISO-8859-7", "UTF-7"}) {
            convert("\xC3\xA9\xE4", code); // stops at a fault, in UTF-7 amid a shifted run
            EXPECT_EQ(convert("b", code), "b") << code;
        }
        EXPECT_EQ(convert("a", "no such code set"), "");
    };
    std::thread(use).join();
    use();
}

} // namespace
