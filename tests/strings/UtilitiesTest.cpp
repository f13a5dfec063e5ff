#include "strings/LMenuText.h"
#include "strings/LStringUtilities.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

TEST(StringUtilities, FindsFields) {
    struct {
        const char* pText;
        unsigned long dwSize;
        bool bFound;
        const char* pField;
    } const rows[] = {{"a<b>value</b>c</b>", 260, true, "value"},
                      {"a<b>value", 260, true, "value"},
                      {"<b></b>", 260, true, ""},
                      {"a<b>value</b>", 4, true, "val"},
                      {"<b>value", 6, true, "value"},
                      {"<b>value", 1, true, ""},
                      {"</b>value", 260, false, ""},
                      {"", 260, false, ""}};
    for (const auto& row : rows) {
        char szOut[260] = "old";
        EXPECT_EQ(LStringFindTextField(row.pText, "<b>", "</b>", szOut, row.dwSize), row.bFound) << row.pText;
        EXPECT_STREQ(szOut, row.pField) << row.pText;
    }
    char nUntouched = 'u';
    EXPECT_TRUE(LStringFindTextField("<b>value", "<b>", "</b>", &nUntouched, 0));
    EXPECT_EQ(nUntouched, 'u');
}

TEST(StringUtilities, RemovesHTTPItems) {
    struct {
        std::string name;
        std::string query;
        std::string expected;
    } const rows[] = {{"b", "a=1&b=2&c=3", "a=1&c=3"},
                      {"c", "a=1&b=2&c=3", "a=1&b=2"},
                      {"a", "a=1&b=2&c=3", "&b=2&c=3"},
                      {"d", "a=1&b=2&c=3", "a=1&b=2&c=3"},
                      {"b", "a=1&bb=2&c=3", "a=1&b&c=3"},
                      {"a", "a=", ""},
                      {"a", "", ""},
                      {std::string(260, 'k'), "x=1&" + std::string(260, 'k') + "=2", "x=1"},
                      {std::string(300, 'k'), "x=1&" + std::string(300, 'k') + "=2&y=3", "x=1&y=3"}};
    for (const auto& row : rows) {
        std::string query = row.query;
        LRemoveHTTPItem(row.name.c_str(), query.data());
        EXPECT_STREQ(query.c_str(), row.expected.c_str()) << row.query;
    }
}

// Each item with the position after it, until the end of the line.
std::string ReadCSV(const char* line, unsigned long outSize) {
    std::string read;
    unsigned long position = 0;
    for (int n = 0; n < 10; ++n) {
        char szOut[20] = "old";
        const unsigned long before = position;
        const bool bItem = GetCSVListItem(line, position, szOut, outSize);
        EXPECT_EQ(bItem, *szOut != 0) << line;
        if (!bItem && position == before)
            break;
        read += std::string(szOut) + ";" + std::to_string(position) + " ";
    }
    return read;
}

TEST(StringUtilities, ReadsCSVLines) {
    struct {
        const char* pLine;
        unsigned long dwSize;
        const char* pItems;
    } const rows[] = {{"a, \"b,c\" ,  d  ", 20, "a;2 b,c;10 d;15 "},
                      {"abcdef,x", 3, "ab;7 x;8 "},
                      {"a,,b", 20, "a;2 ;3 b;4 "},
                      {"\"a\"\"b\",c", 20, "ab;7 c;8 "},
                      {"\" a \" ,b", 20, " a ;7 b;8 "},
                      {"a b c\r\nd", 20, "a b c;5 "},
                      {"\"a\nb", 20, "a;2 "},
                      {"a   b,c", 4, "a;6 c;7 "},
                      {"\xC3\xA9,\xFF", 20, "\xC3\xA9;3 \xFF;4 "},
                      {"ab,c", 1, ";3 ;4 "},
                      {"ab,c", 0, ""}};
    for (const auto& row : rows)
        EXPECT_EQ(row.dwSize == 0 ? "" : ReadCSV(row.pLine, row.dwSize), row.pItems) << row.pLine;
    unsigned long position = 1;
    EXPECT_FALSE(GetCSVListItem("abc", position, nullptr, 0));
    EXPECT_EQ(position, 1U);
}

TEST(StringUtilities, ExpandsCommandLines) {
    struct {
        const char* pLine;
        Texts arguments;
        unsigned long dwCount;
    } const rows[] = {{" prog \"a b\" c\\ d", {"prog", "a b", "c d"}, 2},
                      {"\"ab\"cd", {"ab", "cd"}, 1},
                      {"", {}, 0},
                      {" \t\r\n\x01 ", {}, 0},
                      {"prog \"\" rest", {"prog"}, 0},
                      {"a\tb\nc d", {"a\tb\nc", "d"}, 1},
                      {"ab\"c d\"e", {"abc d", "e"}, 1},
                      {"\"open end", {"open end"}, 0},
                      {"a\\b \\\"c d\" \\", {"a\\b", "\\c d", "\\"}, 2},
                      {"\"a\\ b\" c", {"a b", "c"}, 1},
                      {"\xC3\xA9 \xFF", {"\xC3\xA9", "\xFF"}, 1}};
    for (const auto& row : rows) {
        LCommandLineArgumentStringExpander expander(row.pLine);
        Texts arguments;
        while (expander.NextArgument())
            arguments.emplace_back(expander.GetArgument().GetText());
        EXPECT_EQ(arguments, row.arguments) << row.pLine;
        EXPECT_EQ(expander.GetArgument().GetLength(), 0U);
        EXPECT_EQ(expander.GetArgumentCount(row.pLine), row.dwCount) << row.pLine;
    }
    LCommandLineArgumentStringExpander expander("long-argument x");
    ASSERT_TRUE(expander.NextArgument());
    EXPECT_EQ(expander.GetArgument().GetCapacity(), 14U);
}

TEST(StringUtilities, ParsesToStops) {
    for (unsigned long dwLength : {0UL, 258UL, 259UL, 260UL, 1000UL}) {
        std::string const text(dwLength, 'k');
        char szOut[260];
        EXPECT_EQ(LParseGetToCharacters((text + "=v").c_str(), ";=", szOut), dwLength);
        EXPECT_EQ(szOut, text.substr(0, 259));
        EXPECT_EQ(LParseGetToCharacters(text.c_str(), "", szOut), dwLength);
    }
    LStringParserTemplate<char> parser("key=value;last");
    Texts parts;
    for (int n = 0; n < 4; ++n) {
        char szOut[260];
        parser.GetToCharacterAndSkip("=;", szOut);
        parts.emplace_back(szOut);
    }
    EXPECT_EQ(parts, (Texts{"key", "value", "last", ""}));
    EXPECT_STREQ(parser.GetPosition(), "");
}

TEST(StringUtilities, ParsesHexadecimal) {
    struct {
        const char* pText;
        const wchar_t* pWide;
        std::uint32_t nValue;
    } const rows[] = {{"1aF", L"1aF", 0x1AF},
                      {"zz", L"zz", 0},
                      {"0x1F", L"0x1F", 0},
                      {"123456789ABcdef0g1", L"123456789ABcdef0g1", 0x9ABCDEF0},
                      {"", L"", 0},
                      {"-1", L"-1", 0},
                      {"a\xC3", L"a\x416", 10}};
    for (const auto& row : rows) {
        EXPECT_EQ(atoh(row.pText), row.nValue) << row.pText;
        EXPECT_EQ(wtoh(row.pWide), row.nValue) << row.pText;
    }
}

TEST(StringUtilities, ComparesWideBeginnings) {
    EXPECT_EQ(wstrcmp(L"", L""), 0);
    EXPECT_EQ(wstrcmp(L"abc", L"ab"), 0);
    EXPECT_EQ(wstrcmp(L"", L"ab"), 0);
    EXPECT_EQ(wstrcmp(L"abc", L"abd"), -1);
    EXPECT_EQ(wstrcmp(L"b", L"a"), -1);
    const unsigned short units[] = {0x416, 0xFFFF, 0};
    EXPECT_EQ(lstrlen(units), 2U);
}

TEST(StringUtilities, ChangesInPlace) {
    char szText[] = "Aa-Zz \xC3\x89";
    EXPECT_STREQ(strlwr(szText), "aa-zz \xC3\x89");
    EXPECT_STREQ(strupr(szText), "AA-ZZ \xC3\x89");
    EXPECT_EQ(LStringReplaceChar(szText, 'A', '/'), szText);
    EXPECT_STREQ(szText, "//-ZZ \xC3\x89");
}

TEST(StringUtilities, MakesPasswords) {
    std::string text(202, '#');
    EXPECT_EQ(LStringGenerateRandomPassword(text.data(), 200), 200U);
    EXPECT_EQ(text.find_first_not_of("abcdefghijklmnopqrstuvwxyz"), 200U);
    EXPECT_EQ(text.substr(200), std::string("\0#", 2));
    LStringGenerateRandomPassword(text.data(), 0);
    EXPECT_EQ(text[0], 0);
}

TEST(MenuText, StripsMarks) {
    struct {
        const char* pText;
        const char* pPlain;
        const char* pJPStyle;
    } const rows[] = {{"&File && Edit", "File & Edit", "&File && Edit"},
                      {"Open(&O)...", "Open(O)...", "Open..."},
                      {"a(&b", "a(b", "a"},
                      {"(x)(&A)(&B)&", "(x)(A)(B)", "(x)&"},
                      {"&&&a&", "&a", "&&&a&"},
                      {"", "", ""},
                      {nullptr, "", ""}};
    for (const auto& row : rows) {
        char szOut[40] = "old";
        LStripAmpersand(szOut, row.pText);
        EXPECT_STREQ(szOut, row.pPlain);
        LPrepareForDisplay(szOut, row.pText);
        EXPECT_STREQ(szOut, row.pPlain);
        LStripJPStyleAmpersand(szOut, row.pText);
        EXPECT_STREQ(szOut, row.pJPStyle);
    }
}

TEST(MenuText, CutsShortcuts) {
    char szOut[40];
    EXPECT_EQ(LPrepareForMenuItem(szOut, "&Save\tCmd+S\tx"), szOut + 4);
    EXPECT_STREQ(szOut, "Save");
    EXPECT_EQ(LPrepareForMenuItem(szOut, "&Save"), nullptr);
    EXPECT_STREQ(szOut, "Save");
}

} // namespace
