#include "strings/LString.h"
#include "strings/LStringFormat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

// Without the compiler's view of the format: the tests go beyond what printf allows.
auto* const Print = static_cast<std::uint32_t (*)(char*, unsigned long, const char*, ...)>(tplsnprintf);
auto* const HostPrint = static_cast<int (*)(char*, std::size_t, const char*, ...)>(std::snprintf);

constexpr std::size_t Room = 4096;

template <typename... Values>
std::string Ours(const std::string& format, Values... values) {
    char szText[Room];
    std::uint32_t const nLength = Print(szText, sizeof(szText), format.c_str(), values...);
    EXPECT_EQ(nLength, std::strlen(szText));
    return szText;
}

// One conversion as the host prints it into a buffer of 260.
template <typename Value>
std::string Host(const std::string& format, Value value) {
    char szText[260] = "";
    HostPrint(szText, sizeof(szText), format.c_str(), value);
    return szText;
}

std::string RandomDirective(std::mt19937& random) {
    std::string text = "%";
    if (random() % 3 == 0)
        text += random() % 4 == 0 ? "00" : "0";
    const unsigned nMost = random() % 8 == 0 ? 3000 : 20;
    if (random() % 2 == 0)
        text += std::to_string(random() % nMost);
    if (random() % 3 == 0) {
        text += '.';
        if (random() % 5 != 0)
            text += std::to_string(random() % nMost);
    }
    return text;
}

template <typename Value, typename Next>
void CompareWithHost(const char* conversions, Next next) {
    std::mt19937 random(7);
    for (int nRun = 0; nRun < 30000; ++nRun) {
        std::string format;
        std::string expected;
        Value values[4];
        for (Value& value : values) {
            value = next(random);
            std::string const conversion =
                RandomDirective(random) + conversions[random() % std::strlen(conversions)];
            std::string const literal(random() % 4 == 0 ? random() % 40 : random() % 3, ':');
            format += literal + conversion;
            expected += literal + Host(conversion, value);
        }
        ASSERT_EQ(Ours(format, values[0], values[1], values[2], values[3]), expected) << format;
    }
}

TEST(Format, PrintsIntegersAsTheHostDoes) {
    CompareWithHost<int>("diuxXoc", [](std::mt19937& random) {
        int const special[] = {
            0, 0, 1, -1, 9, 10, 99, 100, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()};
        unsigned long const nChoice = random() % 20;
        return nChoice < 10 ? special[nChoice] : static_cast<int>(random() >> random() % 32);
    });
}

TEST(Format, PrintsDoublesAsTheHostDoes) {
    CompareWithHost<double>("efg", [](std::mt19937& random) {
        double const special[] = {0.0,    -0.0,         1.0,       0.5,       1e300,
                                  5e-324, std::nan(""), -INFINITY, 9.9999999, 1e15};
        unsigned long const nChoice = random() % 20;
        if (nChoice < 10)
            return special[nChoice];
        return std::ldexp(static_cast<double>(random()) - 2e9, static_cast<int>(random() % 200) - 100);
    });
}

TEST(Format, ReadsDirectives) {
    std::string const zeros256(256, '0');
    struct {
        std::string format;
        std::string expected; // with the arguments 7 and 8
    } const rows[] = {{"", ""},
                      {"%", ""},
                      {"abc%", "abc"},
                      {"%5", ""},
                      {"%.", ""},
                      {"%%", "%"},
                      {"%5%|%d", "%|7"},
                      {"%.4d", "0007"},
                      {"%02d", "07"},
                      {"%d.%d", "7.8"},
                      {"%300d|%d", std::string(259, ' ') + "|8"},
                      {"%.300d|", std::string(259, '0') + "|"},
                      {"%0300u|", std::string(259, '0') + "|"},
                      {"%259d|", std::string(258, ' ') + "7|"},
                      {"%300c|", std::string(259, ' ') + "|"},
                      {"%99999999999999999999d|", std::string(259, ' ') + "|"},
                      {"%.99999999999999999999d|", std::string(259, '0') + "|"},
                      {"%5000.99999999999999d|", std::string(259, '0') + "|"},
                      {"%" + zeros256 + "3d", "007"},
                      {"%" + zeros256 + "03d", "7"},
                      {"%n|%d", "|8"},
                      {"%p|%d", "|8"},
                      {"%S|%d", "|8"},
                      {"%ld|%d", "d|8"},
                      {"%-5d|%d", "5d|8"},
                      {"%*d|%d", "d|8"},
                      {"%1.2.3d|%d", "|8"},
                      {"%..d|%d", "|8"},
                      {"%\xC3\xA9|%d", "\xA9|8"}};
    for (const auto& row : rows)
        EXPECT_EQ(Ours(row.format, 7, 8), row.expected) << row.format;
}

TEST(Format, CopiesTextsWhole) {
    EXPECT_EQ(Ours("%5s|%.1s|%05.2s|%s", "ab", "abc", "abc", ""), "ab|abc|abc|");
    EXPECT_EQ(Ours("%s%s", static_cast<const char*>(nullptr), "next"), "next");
    std::string const longText(1500, 'y');
    EXPECT_EQ(Ours("<%s>", longText.c_str()), "<" + longText + ">");
    EXPECT_EQ(Ours("%1.2.3f|%.1f", 1.0, 2.0), "|2.0");
    EXPECT_EQ(Ours("%c%c%3c|%5c|", 0, 'a', 0, 'b'), "a  |    b|");
}

TEST(Format, CutsAtTheBuffersEnd) {
    std::string const whole = "ab-12345-tail-of-the-text-00042";
    for (unsigned long nSize = 0; nSize <= whole.size() + 2; ++nSize) {
        std::unique_ptr<char[]> pExact(new char[nSize]); // so that a byte too many is seen
        std::string const expected = whole.substr(0, nSize == 0 ? 0 : nSize - 1);
        EXPECT_EQ(tplsnprintf(pExact.get(), nSize, "%s-%u-tail-of-the-text-%.5d", "ab", 12345U, 42),
                  expected.size());
        if (nSize != 0) {
            EXPECT_EQ(pExact.get(), expected);
        }
    }
}

TEST(Format, NullFormatWritesNothing) {
    char szText[4] = "abc";
    EXPECT_EQ(Print(szText, sizeof(szText), nullptr), 0U);
    EXPECT_STREQ(szText, "");
}

TEST(Format, ReplacesAndAppends) {
    LStringLongTemplate<char> text;
    text = "ab";
    EXPECT_EQ(text.tsprintfappend("%d", 5), 3U);
    EXPECT_STREQ(text.GetText(), "ab5");
    EXPECT_EQ(text.sprintf("%s", "x"), 1U);
    EXPECT_STREQ(text.GetText(), "x");
    EXPECT_EQ(text.GetCapacity(), 260U);
}

TEST(Format, WritersCountWithoutTerminating) {
    char szText[8] = "zzzzzzz";
    LFixedLengthStringWriterTemplate<char> writer(szText, 6);
    EXPECT_EQ(sprintf(writer, "%d", 123), 3U);
    EXPECT_STREQ(szText, "123zzzz");
    tplstrcpy(writer, "456789");
    EXPECT_EQ(writer.GetCount(), 6U);
    EXPECT_STREQ(szText, "123456z");
}

TEST(Format, ShortStringsCutAt259) {
    using Format = LStringPrintFormatTemplate<char>;
    EXPECT_STREQ(LStringShortTemplate<char>(Format("%s_%u"), "id", 7U), "id_7");
    for (std::size_t nLength : {258, 259, 260, 261}) {
        std::string const text(nLength, 'x');
        const LStringShortTemplate<char> cut(Format("%s"), text.c_str());
        EXPECT_EQ(std::strlen(cut), std::min<std::size_t>(nLength, 259));
    }
}

} // namespace
