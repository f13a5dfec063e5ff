#include "strings/LString.h"
#include "strings/LStringFormat.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>

namespace {

using Texts = std::vector<std::string>;

// Without the compiler's view of the format: the tests go beyond what printf allows.
auto* const Print = static_cast<std::uint32_t (*)(char*, unsigned long, const char*, ...)>(tplsnprintf);
auto* const HostPrint = static_cast<int (*)(char*, std::size_t, const char*, ...)>(std::snprintf);

template <typename... Values>
std::string Ours(const std::string& format, Values... values) {
    char szText[4096];
    std::uint32_t const nLength = Print(szText, sizeof(szText), format.c_str(), values...);
    EXPECT_EQ(nLength, std::strlen(szText));
    return szText;
}

// A conversion with its length, behind flags, a width and a precision.
std::string RandomDirective(std::mt19937& random, const Texts& conversions) {
    std::string directive = "%";
    for (const char nFlag : {'0', '0', '-', '+', ' ', '#'})
        directive += std::string(random() % 5 == 0, nFlag);
    const auto number = [&random, nMost = random() % 8 == 0 ? 3000U : 20U] {
        return random() % 3 == 0 ? "" : std::to_string(random() % nMost);
    };
    std::string const precision = random() % 3 == 0 ? "." + number() : "";
    return directive + number() + precision + conversions[random() % conversions.size()];
}

// Several conversions in one format, each as the host prints it into a buffer of 260.
template <typename Value, typename Next>
void CompareWithHost(const Texts& conversions, Next next) {
    std::mt19937 random(7);
    for (int nRun = 0; nRun < 30000; ++nRun) {
        std::string format;
        std::string expected;
        Value values[4];
        for (Value& value : values) {
            value = static_cast<Value>(next(random));
            std::string const directive = RandomDirective(random, conversions);
            std::string const literal(random() % 4 == 0 ? random() % 40 : random() % 3, ':');
            char szHost[260] = "";
            HostPrint(szHost, sizeof(szHost), directive.c_str(), value);
            format += literal + directive;
            expected += literal + szHost;
        }
        ASSERT_EQ(Ours(format, values[0], values[1], values[2], values[3]), expected) << format;
        std::vector<char> cut(1 + random() % (expected.size() + 2)); // so that a byte too many is seen
        Print(cut.data(), cut.size(), format.c_str(), values[0], values[1], values[2], values[3]);
        ASSERT_EQ(cut.data(), expected.substr(0, cut.size() - 1)) << format;
    }
}

TEST(Format, PrintsNumbersAsTheHostDoes) {
    const auto integer = [](std::mt19937& random) {
        long const special[] = {0, 0, 1, -1, 9, 10, 99, 100, INT_MIN, LONG_MIN};
        unsigned long const nChoice = random() % 20;
        long const any = static_cast<long>(random()) * static_cast<int>(random());
        return nChoice < 10 ? special[nChoice] : any >> random() % 64;
    };
    const auto real = [](std::mt19937& random) {
        double const special[] = {0, -0.0, 2.5, 0.375, 1e300, 5e-324, NAN, -INFINITY, 9.9999999, 1e15};
        unsigned long const nChoice = random() % 20;
        double const any = static_cast<double>(random()) - 2e9;
        return nChoice < 10 ? special[nChoice] : std::ldexp(any, static_cast<int>(random() % 200) - 100);
    };
    CompareWithHost<int>({"d", "i", "u", "x", "X", "o", "c", "hd", "hhi", "hu", "hhx"}, integer);
    CompareWithHost<long>({"ld", "lli", "zu", "jx", "tX", "lo"}, integer);
    CompareWithHost<double>({"e", "f", "g", "a", "E", "F", "G", "A", "lf"}, real);
    CompareWithHost<long double>({"Le", "Lf", "Lg", "La"}, real);
}

TEST(Format, TakesArgumentsAsTheHostDoes) {
    const auto expectAsHost = [](const char* format, auto... values) {
        char szHost[400];
        HostPrint(szHost, sizeof(szHost), format, values...);
        EXPECT_EQ(Ours(format, values...), szHost) << format;
    };
    const char open[] = {'o', 'p', 'e', 'n'}; // not terminated
    for (const int n : {-30, -5, 0, 3, 30})
        expectAsHost("%*d|%-*x|%.*u|%0*.*f|%*s|%.*s|%-*.*s|%+*.4s|%s", n, 7, n, 255, n, 8, n, n, 1.5, n, "ab",
                     n, "abcd", n, 2, open, n, open, "end");
    expectAsHost("%-8s|%- 3s|%-.2s|%hhd|%lld|%zu|%'d|%'f|%E|%Lg|%s", "ab", "abcd", "abcd", 300, 1LL << 40,
                 ~0UL, 12345, 12345.0, 0.5, 2.5L, "end");
}

TEST(Format, ReadsDirectives) {
    EXPECT_EQ(Ours("%%|%5%|%.4d|%02d|%d.%d", 1, 2, 3, 4), "%|%|0001|02|3.4");
    EXPECT_EQ(Ours("%n|%p|%S|%1.2.3d|%..d|%d", 1, 2, 3, 4, 5, 6), "|||||6");
    EXPECT_EQ(Ours("%ls|%lc|%m|%\xC3\xA9|%d", L"wide", 2, 3, 4), "|||\xA9|4");
    for (const char* pUnfinished : {"", "%", "%5", "%.", "%00"})
        EXPECT_EQ(Ours(std::string("abc") + pUnfinished, 7), "abc") << pUnfinished;
    std::string const huge(20, '9');
    for (const auto& format : Texts{"%300d|", "%300c|", "%" + huge + "d|"})
        EXPECT_EQ(Ours(format, 7), std::string(259, ' ') + "|") << format;
    for (const auto& format : Texts{"%.300d|", "%0300u|", "%." + huge + "d|", "%5000." + huge + "d|"})
        EXPECT_EQ(Ours(format, 7), std::string(259, '0') + "|") << format;
    EXPECT_EQ(Ours("%259d|", 7), std::string(258, ' ') + "7|");
    // A directive is read up to its 257th character.
    EXPECT_EQ(Ours("%" + std::string(256, '0') + "3d", 7), "007");
    EXPECT_EQ(Ours("%" + std::string(256, '0') + "03d", 7), "7");
}

TEST(Format, CopiesTextsWhole) {
    EXPECT_EQ(Ours("%5s|%.1s|%05.2s|%s", "ab", "abc", "abc", ""), "ab|abc|abc|");
    EXPECT_EQ(Ours("%s%s", static_cast<const char*>(nullptr), "next"), "next");
    std::string const longText(1500, 'y');
    EXPECT_EQ(Ours("<%s>", longText.c_str()), "<" + longText + ">");
    EXPECT_EQ(Ours("%c%c%3c|%5c|", 0, 'a', 0, 'b'), "a  |    b|");
}

TEST(Format, CutsAtTheRoomThereIs) {
    char szText[4] = "abc";
    EXPECT_EQ(Print(szText, 0, "x"), 0U);
    EXPECT_STREQ(szText, "abc");
    EXPECT_EQ(Print(szText, sizeof(szText), nullptr), 0U);
    EXPECT_STREQ(szText, "");
    for (std::size_t nLength : {0UL, 258UL, 259UL, 260UL, 261UL}) {
        std::string const text(nLength, 'x');
        const LStringShortTemplate<char> cut(LStringPrintFormatTemplate<char>("%s"), text.c_str());
        EXPECT_EQ(std::string(cut), text.substr(0, 259));
    }
}

} // namespace
