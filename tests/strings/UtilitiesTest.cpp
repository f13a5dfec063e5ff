#include "strings/LMenuText.h"
#include "strings/LStringUtilities.h"

#include <gtest/gtest.h>

#include <array>

namespace {

std::string Field(const char* text, unsigned long dwSize) {
    char szOut[260] = "old";
    const bool bFound = LStringFindTextField(text, "<b>", "</b>", szOut, dwSize);
    return szOut + std::string(bFound ? "" : "!");
}

TEST(StringUtilities, FindsFields) {
    EXPECT_EQ(Field("a<b>value</b>c</b>", 260), "value");
    EXPECT_EQ(Field("a<b>value</b>", 4), "val");
    EXPECT_EQ(Field("<b>value", 6), "value");
    EXPECT_EQ(Field("<b>value", 1), "");
    EXPECT_EQ(Field("<b>value", 0), "old");
    EXPECT_EQ(Field("</b>value", 260), "!");
}

TEST(StringUtilities, RemovesHTTPItems) {
    std::string const k260(260, 'k');
    const std::vector<std::array<std::string, 3>> rows = {
        {"b", "a=1&b=2&c=3", "a=1&c=3"},     {"c", "a=1&b=2&c=3", "a=1&b=2"},
        {"a", "a=1&b=2&c=3", "&b=2&c=3"},    {"d", "a=1&b=2&c=3", "a=1&b=2&c=3"},
        {"b", "a=1&bb=2&c=3", "a=1&b&c=3"},  {"a", "a=", ""},
        {k260, "x=1&" + k260 + "=2", "x=1"}, {k260 + "l", "x=1&" + k260 + "l=2&y=3", "x=1&y=3"}};
    for (const auto& [name, before, after] : rows) {
        std::string query = before;
        LRemoveHTTPItem(name.c_str(), query.data());
        EXPECT_STREQ(query.c_str(), after.c_str()) << before;
    }
}

TEST(StringUtilities, ReadsCSVLines) {
    const std::vector<std::tuple<const char*, unsigned long, std::string>> rows = {
        {"a, \" b,c \" ,  d  ", 20, "a;2  b,c ;12 d;17 "},
        {"abcdef,x", 3, "ab;7 x;8 "},
        {"\"a\"\"b\",,\xFF", 20, "ab;7 ;8 \xFF;9 "},
        {"a b c\r\nd", 20, "a b c;5 ;5 "},
        {"\"a\nb", 20, "a;2 "},
        {"a   b,c", 4, "a;6 c;7 "},
        {"ab,c", 1, ";3 ;4 "}};
    for (const auto& [line, size, items] : rows) {
        // Each item with the position after it.
        std::string read;
        for (unsigned long position = 0; read.size() < items.size();) {
            char szOut[20] = "old";
            const bool bItem = GetCSVListItem(line, position, szOut, size);
            EXPECT_EQ(bItem, *szOut != 0) << line;
            read += szOut + (";" + std::to_string(position)) + " ";
        }
        EXPECT_EQ(read, items);
    }
    unsigned long position = 1;
    EXPECT_FALSE(GetCSVListItem("abc", position, nullptr, 0));
    EXPECT_EQ(position, 1U);
}

TEST(StringUtilities, TakesCommandLinesApart) {
    LCommandLineArgumentStringExpander line("\x1 a\x1F\tb\\ c\r\n \"d e\" \x7Fg");
    for (const char* szExpected : {"a\x1F\tb c\r\n", "d e", "\x7Fg", ""}) {
        EXPECT_EQ(line.NextArgument(), *szExpected != 0);
        EXPECT_STREQ(line.GetArgument().GetText(), szExpected);
    }
    EXPECT_EQ(line.GetArgumentCount("\tprogram \x1F\x1 one two"), 2U);
}

TEST(StringUtilities, ParsesToStops) {
    char szOut[260];
    for (unsigned long dwLength : {0UL, 258UL, 259UL, 260UL, 1000UL}) {
        std::string const text(dwLength, 'k');
        EXPECT_EQ(LParseGetToCharacters((text + "=v").c_str(), ";=", szOut), dwLength);
        EXPECT_EQ(szOut, text.substr(0, 259));
        EXPECT_EQ(LParseGetToCharacters(text.c_str(), "", szOut), dwLength);
    }
    LStringParserTemplate<char> parser("key=value;last");
    for (const char* pPart : {"key", "value", "last", "", ""}) {
        parser.GetToCharacterAndSkip("=;", szOut);
        EXPECT_STREQ(szOut, pPart);
    }
    EXPECT_STREQ(parser.GetPosition(), "");
}

TEST(StringUtilities, ParsesHexadecimal) {
    const std::vector<std::pair<std::string, std::uint32_t>> rows = {
        {"1aF", 0x1AF}, {"zz", 0}, {"0x1F", 0},  {"123456789ABcdef0g1", 0x9ABCDEF0},
        {"", 0},        {"-1", 0}, {"a\xC3", 10}};
    for (const auto& [text, value] : rows) {
        EXPECT_EQ(atoh(text.c_str()), value) << text;
        EXPECT_EQ(wtoh(std::wstring(text.begin(), text.end()).c_str()), value) << text;
    }
    EXPECT_EQ(wtoh(L"a\x131"), 10U); // whose low byte is a digit
}

TEST(StringUtilities, HandlesCharacters) {
    EXPECT_EQ(wstrcmp(L"abc", L"ab") | wstrcmp(L"", L"ab"), 0);
    EXPECT_EQ(wstrcmp(L"abc", L"abd"), -1);
    EXPECT_EQ(wstrcmp(L"b", L"a"), -1);
    const unsigned short units[] = {0x4100, 0xFFFF, 0};
    EXPECT_EQ(lstrlen(units), 2U);
    char szText[] = "Aa-Zz \xC3\x89";
    EXPECT_STREQ(strlwr(szText), "aa-zz \xC3\x89");
    EXPECT_STREQ(strupr(szText), "AA-ZZ \xC3\x89");
    EXPECT_STREQ(LStringReplaceChar(szText, 'A', '/'), "//-ZZ \xC3\x89");
}

TEST(StringUtilities, MakesPasswords) {
    std::string text(202, '#');
    EXPECT_EQ(LStringGenerateRandomPassword(text.data(), 200), 200U);
    EXPECT_EQ(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz"), 200U);
    EXPECT_EQ(text.substr(200), std::string("\0#", 2));
}

TEST(MenuText, StripsMarks) {
    const char* const rows[][3] = {{"&File && (x)(&A)(&B)&", "File & (x)(A)(B)", "&File && (x)&"},
                                   {"a(&b", "a(b", "a"},
                                   {"&&&a&", "&a", "&&&a&"},
                                   {nullptr, "", ""}};
    char szOut[40];
    for (const auto& [text, plain, jpStyle] : rows) {
        LPrepareForDisplay(szOut, text);
        EXPECT_STREQ(szOut, plain);
        LStripJPStyleAmpersand(szOut, text);
        EXPECT_STREQ(szOut, jpStyle);
    }
    EXPECT_EQ(LPrepareForMenuItem(szOut, "&Save\tCmd+S\tx"), szOut + 4);
    EXPECT_STREQ(szOut, "Save");
    EXPECT_EQ(LPrepareForMenuItem(szOut, "&Save"), nullptr);
}

} // namespace
