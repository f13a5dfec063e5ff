#include "strings/CharsetsOracle.h"
#include "strings/LCharsets.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <iconv.h>
#include <thread>

namespace {

using Wide = std::wstring;
using Unicode = std::vector<unsigned short>;

LStringLongTemplate<unsigned short>& Fill(LStringLongTemplate<unsigned short>& string, const Unicode& units) {
    string.GrowToSize(units.size() + 1);
    std::copy(units.begin(), units.end(), string.GetData());
    string.SetLength(static_cast<std::uint32_t>(units.size()));
    return string;
}

Unicode UnitsOf(const unsigned short* text) {
    Unicode units;
    while (*text != 0)
        units.push_back(*text++);
    return units;
}

// What `copy` leaves in a buffer of this size.
template <typename Copy>
std::string In(std::size_t size, Copy copy) {
    std::string buffer(size, '#');
    copy(buffer.data());
    return buffer.c_str();
}

TEST(Charsets, DecodeStopsWhereTheContractSays) {
    struct Row {
        const char* text;
        unsigned long limit;
        int result;
        Wide values;
    };
    const Row rows[] = {
        {"", 1, 0, L""},
        {"\xE2\x82\xAC", 4, 0, L"\x20AC"},
        {"\xE2\x82\xAC", 3, 1, L""},
        {"ab", 2, 1, L"a"},
        {"ab", 3, 0, L"ab"},
        {"\xC0\x80", 9, 2, L""},
        {"A\xC3", 9, 2, L"A"},
        {"A\xC3", 3, 1, L"A"}, // the limit is asked before the bytes are looked at
        {"A\xC3", 4, 2, L"A"},
        {"\xED\xA0\x80", 9, 2, L""},
        {"\xF4\x90\x80\x80", 9, 2, L""},
        {"\xF0\x90\x80\x80", 5, 0, L"\U00010000"},
        {"\xF8\x80\x80\x80\x80", 6, 2, L""},
        {"\xF8\x80\x80\x80\x80", 5, 1, L""},
        {"\xFC", 7, 2, L""},
        {"\xFF", 6, 1, L""}, // announces six bytes, not more
        {"ab\x80z", 9, 2, L"ab"},
        {"ab\x80z", 3, 1, L"ab"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text) + " limit " + std::to_string(row.limit));
        Wide values(row.limit, L'#');
        EXPECT_EQ(LCopyUTF32FromUTF8(values.data(), row.text, row.limit), row.result);
        EXPECT_EQ(values.c_str(), row.values);
    }
    wchar_t untouched = L'#';
    EXPECT_EQ(LCopyUTF32FromUTF8Native(&untouched, "a", 0), 1);
    EXPECT_EQ(untouched, L'#');
}

TEST(Charsets, EncodeReplacesWhatNoCharacterCanBe) {
    const std::tuple<Wide, int, std::string> rows[] = {
        {L"", 0, ""},
        {L"\x7F\x80\x7FF\x800", 0, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80"},
        {{wchar_t{0xD800}}, 0, "\xED\xA0\x80"},
        {{wchar_t{0x10000}, wchar_t{0x10FFFF}}, 0, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {{wchar_t{0x110000}, L'z'}, 2, "\xEF\xBF\xBDz"},
        {{wchar_t{-1}}, 2, "\xEF\xBF\xBD"},
    };
    for (const auto& [values, result, text] : rows) {
        std::string buffer(4 * values.size() + 1, '#');
        EXPECT_EQ(LCopyUTF8FromUTF32(buffer.data(), values.c_str(), 0), result) << text;
        EXPECT_EQ(buffer.c_str(), text);
    }
}

TEST(Charsets, SizedUnicodeFormsCutAndTerminate) {
    const std::string accent = "\xC3\xA9";
    const std::tuple<std::string, unsigned long, Unicode> decoded[] = {
        {accent, 2, {}},
        {accent, 3, {0xE9}},
        {"abc", 3, {'a', 'b'}},
        {"abc", 1, {}},
        {"\xF0\x9F\x98\x80", 5, {0xF600}},
        {"a\xFFz", 9, {'a'}},
    };
    for (const auto& [text, size, units] : decoded) {
        Unicode buffer(size, '#');
        LCopyUnicodeFromUTF8(buffer.data(), text.c_str(), size);
        EXPECT_EQ(UnitsOf(buffer.data()), units) << text << " size " << size;
    }
    const std::tuple<Unicode, unsigned long, std::string> encoded[] = {
        {{0x20AC, 0}, 4, "\xE2\x82\xAC"},
        {{0x20AC, 0}, 3, "\xE2\x82"},
        {{0x20AC, 0}, 1, ""},
        {{'a', 0xD83D, 0xDE00, 0}, 8, "a\xED\xA0\xBD\xED\xB8\x80"},
        {{'a', 'b', 0}, 2, "a"},
    };
    for (const auto& [units, size, text] : encoded) {
        std::string buffer(size, '#');
        LCopyUTF8FromUnicode(buffer.data(), units.data(), size);
        EXPECT_EQ(std::string(buffer.c_str()), text) << "size " << size;
    }
    Unicode narrow(40, '#');
    Wide wide(40, L'#');
    const Wide values = L"\U0001F600" + Wide(30, L'x');
    LCopyUnicodeFromUTF32(narrow.data(), values.c_str(), 21);
    EXPECT_EQ(narrow[0], 0xF600);
    EXPECT_EQ(UnitsOf(narrow.data()).size(), 20U);
    narrow[0] = 0xD83D;
    LCopyUTF32FromUnicode(wide.data(), narrow.data(), 19);
    EXPECT_EQ(Wide(wide.c_str()), Wide(1, wchar_t{0xD83D}) + Wide(17, L'x'));
}

TEST(Charsets, PathBufferForms) {
    std::string text(257, 'a');
    text += "\xC3\xA9z";
    Unicode units(LPathBufferSize + 1, '#');
    LCopyUnicodeFromUTF8(units.data(), text.c_str());
    EXPECT_EQ(UnitsOf(units.data()).size(), 258U);
    units.assign(300, 0xE9);
    units.push_back(0);
    EXPECT_EQ(In(LPathBufferSize, [&](char* to) { LCopyUTF8FromUnicode(to, units.data()); }).size(), 259U);
}

// The growable forms against the core, on the same random text.
TEST(Charsets, GrowableFormsAgreeWithTheCore) {
    std::mt19937 random(815);
    for (int round = 0; round < 500; ++round) {
        const std::string text = RandomText(random, random() % 300);
        Wide values(text.size() + 1, L'#');
        LCopyUTF32FromUTF8(values.data(), text.c_str(), values.size());
        Unicode expected;
        for (const wchar_t* walk = values.c_str(); static_cast<unsigned short>(*walk) != 0; ++walk)
            expected.push_back(static_cast<unsigned short>(*walk));

        LStringLongTemplate<char> source, back;
        source = text.c_str();
        LStringLongTemplate<unsigned short> units;
        LCopyUnicodeFromUTF8(units, source);
        ASSERT_EQ(UnitsOf(units.GetData()), expected) << text;
        ASSERT_EQ(units.GetLength(), expected.size());

        const Wide widened(expected.begin(), expected.end());
        std::string bytes(4 * widened.size() + 1, '#');
        LCopyUTF8FromUTF32(bytes.data(), widened.c_str(), 0);
        LCopyUTF8FromUnicode(back, units);
        ASSERT_STREQ(back.GetText(), bytes.c_str());
        ASSERT_EQ(back.GetLength(), std::strlen(bytes.c_str()));
        ASSERT_EQ(back.GetCapacity(), 6 * units.GetLength() + 1);
        LCopyFromUnicode(back, units.GetText());
        ASSERT_STREQ(back.GetText(), bytes.c_str());
    }
    LStringLongTemplate<unsigned short> units;
    LCopyUnicodeFromUTF8(units, LStringLongTemplate<char>());
    EXPECT_EQ(units.GetCapacity(), 1U);
}

TEST(Charsets, BigEndian) {
    const unsigned short text[] = {'a', 0x1234, 0, 'x'};
    unsigned char bytes[10];
    const auto copy = [&](unsigned long n, bool terminate) {
        std::memset(bytes, '#', sizeof bytes);
        const unsigned long units =
            LCopyToBigEndianUnicode(reinterpret_cast<unsigned short*>(bytes + 1), text, n, terminate);
        return std::pair(units, std::string(reinterpret_cast<char*>(bytes + 1), 9));
    };
    using namespace std::string_literals;
    EXPECT_EQ(copy(4, false), std::pair(4UL, "\0a\x12\x34\0 \0 #"s));
    EXPECT_EQ(copy(3, true), std::pair(2UL, "\0a\x12\x34\0\0###"s));
    EXPECT_EQ(copy(1, true), std::pair(1UL, "\0a\0\0#####"s));
}

TEST(Charsets, IndexesByLeadBytes) {
    const std::string text = "\xC3\xA9"
                             "b\x80\xE4\xB8\xAD\xF0\x9F"; // a stray byte, and an end inside a sequence
    const unsigned long byteOfChar[] = {0, 2, 3, 4, 7, 9, 9};
    for (unsigned long i = 0; i < std::size(byteOfChar); ++i)
        EXPECT_EQ(LCharsetsUTF8CharIndexToByteIndex(text.c_str(), i), byteOfChar[i]) << i;
    const unsigned long charsBefore[] = {0, 1, 1, 2, 3, 4, 4, 4, 5, 5, 5};
    for (unsigned long i = 0; i < std::size(charsBefore); ++i)
        EXPECT_EQ(LCharsetsUTF8ByteIndexToCharIndex(text.c_str(), i), charsBefore[i]) << i;
    EXPECT_EQ(utf8strlen(text.c_str()), 5U);
    EXPECT_EQ(utf8strlen("\xFF-----\xF8----"), 2U);
    const unsigned long copied[] = {0, 0, 0, 2, 3, 4, 4, 4, 7, 7, 7, 7};
    for (unsigned long n = 1; n < std::size(copied); ++n) {
        std::string buffer(n, '#');
        EXPECT_EQ(utf8strlcpy(buffer.data(), text.c_str(), n), copied[n]) << n;
        EXPECT_EQ(buffer.c_str(), text.substr(0, copied[n]));
    }
    EXPECT_EQ(utf8strlcpy(nullptr, "a", 0), 0U);
}

TEST(Charsets, CodePages) {
    using Form = void (*)(char*, const char*, unsigned long);
    struct Row {
        const char* name;
        Form form;
        const char* source;
        unsigned long size;
        const char* text;
    };
    const Row rows[] = {
        {"from 8859-1", LCopyFromISO88591, "a\xE9", 4, "a\xC3\xA9"},
        {"from 8859-1, cut", LCopyFromISO88591, "a\xE9", 3, "a"},
        {"from 8859-1, one", LCopyFromISO88591, "a", 1, ""},
        {"to 8859-1", LCopyToISO88591, "a\xC3\xA9", 9, "a\xE9"},
        {"to 8859-1, outside", LCopyToISO88591, "ab\xE2\x82\xAC", 9, "ab"},
        {"to 8859-1, invalid", LCopyToISO88591, "ab\xFFz", 9, "ab"},
        {"to 8859-1, cut", LCopyToISO88591, "abc", 3, "ab"},
        {"from 1252", LCopyFromWIN1252, "\x80", 9, "\xC2\x80"},
        {"to 1252", LCopyToWIN1252, "\xC2\x80\xE2\x82\xAC", 9, "\x80"},
        {"from 8859-5", LCopyFromISO88595, "\xB6", 9, "\xD0\x96"},
        {"to 8859-5", LCopyToISO88595, "\xD0\x96", 9, "\xB6"},
        {"from Shift-JIS", LCopyFromSHIFTJIS932, "\x83\x41", 9, "\x83\x41"},
        {"to Shift-JIS, cut", LCopyToSHIFTJIS932, "\x83\x41", 2, "\x83"},
        {"from EUC-KR", LCopyFromEUCKR, "\xB0\xA1", 9, "\xB0\xA1"},
        {"to EUC-KR", LCopyToEUCKR, "\xB0\xA1", 9, "\xB0\xA1"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(In(row.size, [&](char* to) { row.form(to, row.source, row.size); }), row.text) << row.name;
    EXPECT_EQ(In(3, [](char* to) { LCopyFromISO88591(to, "a\xE9"); }), "a");
    EXPECT_EQ(In(4, [](char* to) { LCopyToISO88591(to, "a\xC3\xA9"); }), "a\xE9");

    LStringLongTemplate<char> string;
    LCopyFromISO88595(string, "\xB6z");
    EXPECT_STREQ(string.GetText(), "\xD0\x96z");
    EXPECT_EQ(string.GetLength(), 3U);
    EXPECT_EQ(string.GetCapacity(), 13U);

    char buffer[4] = "###";
    LCopyIconvFixedLength(buffer, "a", sizeof buffer, "no such code set", "UTF-8");
    EXPECT_STREQ(buffer, "");
}

// The kept converters: more pairs than are kept, a fault before each reuse, and a thread that ends.
TEST(Charsets, ConvertersAreReusedClean) {
    const auto use = [] {
        for (const char* code : {"ISO-8859-1", "ISO-8859-2", "ISO-8859-5", "ISO-8859-7", "ISO-8859-9"}) {
            char buffer[8];
            LCopyIconvFixedLength(buffer, "a\xE4", sizeof buffer, code, "UTF-8");
            EXPECT_STREQ(buffer, "a") << code;
            LCopyIconvFixedLength(buffer, "b", sizeof buffer, code, "UTF-8");
            EXPECT_STREQ(buffer, "b") << code;
        }
    };
    std::thread(use).join();
    use();
    use();
}

TEST(Charsets, Ansi) {
    LStringLongTemplate<char> ansi;
    LStringLongTemplate<unsigned short> units;
    ansi = "a\x80\x81\xE9";
    LCopyUnicodeFromAnsi(units, ansi);
    EXPECT_EQ(UnitsOf(units.GetText()), (Unicode{'a', 0x20AC, 0x81, 0xE9}));
    EXPECT_EQ(units.GetLength(), 4U);

    LCopyAnsiFromUnicode(ansi, Fill(units, {'a', 0xE9, 0x81}));
    EXPECT_STREQ(ansi.GetText(), "a\xE9\x81");
    EXPECT_EQ(ansi.GetLength(), 3U);
    LCopyAnsiFromUnicode(ansi, Fill(units, {'a', 0x20AC}).GetText());
    EXPECT_STREQ(ansi.GetText(), "");
    EXPECT_EQ(ansi.GetLength(), 0U);

    const std::string longText(5000, 'x');
    struct Row {
        std::string text;
        unsigned long size;
        std::string expected;
    };
    const Row toAnsi[] = {{"a\xC3\xA9", 4, "a\xE9"},
                          {"a\xC3\xA9", 3, "a"},
                          {"\xE2\x82\xAC", 9, ""},
                          {longText, 5001, longText}};
    for (const Row& row : toAnsi)
        EXPECT_EQ(In(row.size, [&](char* to) { LCopyAnsiFromUTF8(to, row.text.c_str(), row.size); }),
                  row.expected);
    const Row fromAnsi[] = {
        {"a\x80", 5, "a\xE2\x82\xAC"}, {"a\x80", 3, "a\xE2"}, {"a\x80", 2, ""}, {"", 1, ""}};
    for (const Row& row : fromAnsi)
        EXPECT_EQ(In(row.size, [&](char* to) { LCopyUTF8FromAnsi(to, row.text.c_str(), row.size); }),
                  row.expected)
            << row.size;
}

} // namespace
