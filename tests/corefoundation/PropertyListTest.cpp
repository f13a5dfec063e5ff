#include "Support.h"

#include "corefoundation/CFContainers.h"
#include "corefoundation/CFValues.h"

#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace {

using List = port::CFRef<CFPropertyListRef>;

std::string wrapped(std::string_view value) {
    return "<plist>" + std::string(value) + "</plist>";
}

TEST(PropertyListXML, AcceptedValuesInTheirCanonicalForm) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"<true/>", "<true/>\n"},
        {"<false> </false>", "<false/>\n"},
        {"<string/>", "<string></string>\n"},
        {"<string> a\n<!-- -->b </string>", "<string> a\nb </string>\n"},
        {"<string>&lt;&amp;&#x20AC;&quot;</string>", "<string>&lt;&amp;\xE2\x82\xAC\"</string>\n"},
        {"<string>a&#13;\r\nb</string>", "<string>a&#13;\nb</string>\n"},
        {"<string><![CDATA[<b>]]></string>", "<string>&lt;b&gt;</string>\n"},
        {"<integer> -0 </integer>", "<integer>0</integer>\n"},
        {"<integer>+007</integer>", "<integer>7</integer>\n"},
        {"<integer>0xFF</integer>", "<integer>255</integer>\n"},
        {"<integer>-9223372036854775808</integer>", "<integer>-9223372036854775808</integer>\n"},
        {"<integer>18446744073709551615</integer>", "<integer>18446744073709551615</integer>\n"},
        {"<real>-1.5e3</real>", "<real>-1500</real>\n"},
        {"<real>0.1</real>", "<real>0.1</real>\n"},
        {"<real>-inf</real>", "<real>-inf</real>\n"},
        {"<real>nan</real>", "<real>nan</real>\n"},
        {"<date>2024-02-29T23:59:59Z</date>", "<date>2024-02-29T23:59:59Z</date>\n"},
        {"<date>0001-01-01T00:00:00Z</date>", "<date>0001-01-01T00:00:00Z</date>\n"},
        {"<date>9999-12-31T23:59:59Z</date>", "<date>9999-12-31T23:59:59Z</date>\n"},
        {"<data> AA\n== </data>", "<data>\nAA==\n</data>\n"},
        {"<data>+/8=</data>", "<data>\n+/8=\n</data>\n"},
        {"<dict/>", "<dict/>\n"},
        {"<dict><key>b</key><true/><key>a</key><array><false/></array><key>b</key><false/></dict>",
         "<dict>\n\t<key>a</key>\n\t<array>\n\t\t<false/>\n\t</array>\n\t<key>b</key>\n\t<false/>\n</"
         "dict>\n"},
    };
    for (const auto& [value, canonical] : rows)
        EXPECT_EQ(canonical, rewritten(wrapped(value))) << value;
}

TEST(PropertyListXML, EncodingsAndDocumentTypesAroundTheList) {
    const std::pair<std::string, std::string_view> rows[] = {
        {"\xEF\xBB\xBF<?xml version='1.0'?><!DOCTYPE plist SYSTEM 'x.dtd'><?pi?>" + wrapped("<true/>") +
             "<!-- -->",
         "<true/>\n"},
        {"<?xml version='1.0' encoding='ISO-8859-1'?>" + wrapped("<string>\xE9</string>"),
         "<string>\xC3\xA9</string>\n"},
        {"<!DOCTYPE plist []>" + wrapped("<true/>"), "line 1: document type with declarations of its own"},
        {"<!DOCTYPE plist [<!ENTITY a 'b'>]>\n" + wrapped("<string>&a;</string>"),
         "line 1: document type with declarations of its own"},
        {"<!DOCTYPE plist SYSTEM 'x.dtd'>\n" + wrapped("<string>&a;</string>"), "line 2: unknown entity"},
        {"<?xml version='1.0' encoding='EBCDIC'?>" + wrapped("<true/>"), "line 1: unknown encoding"},
    };
    for (const auto& [list, result] : rows)
        EXPECT_EQ(result, rewritten(list)) << list;
}

TEST(PropertyListXML, MalformedListsAreRefusedWithTheirLine) {
    const std::pair<std::string_view, std::vector<std::string>> rows[] = {
        {"line 1: no element found", {"", "<plist><true/>"}},
        {"line 1: not well-formed (invalid token)", {"{ a = b; }", wrapped("<string>\xC0\x80</string>")}},
        {"line 1: reference to invalid character number", {wrapped("<string>&#0;</string>")}},
        {"line 1: junk after document element", {wrapped("<true/>") + "x"}},
        {"line 1: no value in the list", {"<plist/>"}},
        {"line 1: misplaced list element", {"<true/>", wrapped("<plist/>")}},
        {"line 2: second value in the list", {wrapped("<true/>\n<true/>")}},
        {"line 1: unknown element", {wrapped("<null/>"), wrapped("<string>a<b/></string>")}},
        {"line 1: element inside a plain value", {wrapped("<string>a<true/></string>")}},
        {"line 3: text outside a value", {wrapped("\n\nx<true/>"), wrapped("<true>\n\n1</true>")}},
        {"line 1: key outside a dictionary",
         {wrapped("<key>a</key>"), wrapped("<array><key>a</key></array>")}},
        {"line 1: value without a key", {wrapped("<dict><true/></dict>")}},
        {"line 1: key without a value",
         {wrapped("<dict><key>a</key></dict>"), wrapped("<dict><key>a</key><key>b</key></dict>")}},
    };
    for (const auto& [error, lists] : rows)
        for (const std::string& list : lists)
            EXPECT_EQ(error, rewritten(list)) << list;
}

TEST(PropertyListXML, MalformedValuesAreNeverReadAsSomethingElse) {
    const std::pair<const char*, std::vector<const char*>> rows[] = {
        {"integer",
         {"", " ", "-", "+-1", "1 2", "1.0", "1z", "0x", "0xG", "x1", "18446744073709551616",
          "-9223372036854775809", "nan"}},
        {"real", {"", ".", "--1", "+-1", "1,5", "1e", "1e999", "0x10", "nan(1)", "1 2"}},
        {"date",
         {"", "2024", "2023-02-29T00:00:00Z", "2024-13-01T00:00:00Z", "2024-00-01T00:00:00Z",
          "2024-01-01T24:00:00Z", "2024-01-01T00:60:00Z", "2024-01-01T00:00:60Z", "2024-01-01T00:00:00",
          "2024-01-01 00:00:00Z", "0000-01-01T00:00:00Z", "2024-1-01T00:00:00ZZ", "+024-01-01T00:00:00Z"}},
        {"data",
         {"A", "AA", "AAA", "AAAAA", "====", "A===", "AA=A", "AA==AA==", "AB==", "AAB=", "A*==", "AAAA="}},
    };
    for (const auto& [element, texts] : rows)
        for (const std::string text : texts)
            EXPECT_EQ("line 2: malformed value",
                      rewritten(wrapped("\n<" + std::string(element) + ">" + text + "</" + element + ">")))
                << element << " '" << text << "'";
}

TEST(PropertyListXML, LimitsHoldAtAndOnePast) {
    const auto nested = [](std::size_t depth) {
        return wrapped(repeated("<array>", depth) + repeated("</array>", depth));
    };
    const auto many = [](std::size_t count) {
        return wrapped("<array>" + repeated("<true/>", count - 1) + "</array>");
    };
    const auto text = [](std::size_t size) {
        return wrapped("<string>" + std::string(size, 'x') + "</string>");
    };
    const auto key = [](std::size_t size) {
        return wrapped("<dict><key>" + std::string(size, 'x') + "</key><true/></dict>");
    };
    expectLimit(nested, port::kPropertyListDepthLimit, "nested too deep");
    expectLimit(many, port::kPropertyListNodeLimit, "too many values");
    expectLimit(text, port::kPropertyListStringLimit, "string too long");
    expectLimit(key, port::kPropertyListStringLimit, "string too long");
    const auto padded = [](std::size_t size) {
        return wrapped("<true/>") + std::string(size - wrapped("<true/>").size(), ' ');
    };
    expectLimit(padded, port::kPropertyListFileLimit, "list too long");
}

TEST(PropertyListXML, WhatXMLCannotHoldIsNotWritten) {
    const auto arrayOf = [](std::vector<List> values) { return List(new __CFArray(std::move(values))); };
    List deep = arrayOf({});
    for (std::size_t i = 0; i < port::kPropertyListDepthLimit; ++i)
        deep = arrayOf({deep});
    const List longest(__CFString::makeAscii(std::string(port::kPropertyListStringLimit, 'x')));
    const std::pair<List, std::string_view> rows[] = {
        {List(new __CFError(1, "")), "object that no list holds"},
        {arrayOf({List()}), "null value"},
        {deep, "nested too deep"},
        {arrayOf(std::vector<List>(port::kPropertyListNodeLimit, deep)), "nested too deep"},
        {arrayOf(std::vector<List>(port::kPropertyListNodeLimit, arrayOf({}))), "too many values"},
        {List(__CFString::makeAscii(std::string(port::kPropertyListStringLimit + 1, 'x'))),
         "string too long"},
        {arrayOf(std::vector<List>(1000, longest)), "list too long"},
        {List(new __CFData(std::vector<std::uint8_t>(port::kPropertyListFileLimit))), "list too long"},
    };
    const auto reasonOf = [](const List& list) {
        std::string xml;
        std::string error;
        return port::writeXMLPropertyList(list.get(), xml, error) ? "written" : error;
    };
    for (const auto& [list, reason] : rows)
        EXPECT_EQ(reason, reasonOf(list));
    for (const char16_t unit : {u'\0', u'\v', u'\x1F', u'\uFFFE', u'\uFFFF', char16_t{0xD800}})
        EXPECT_EQ("character that XML cannot hold", reasonOf(List(__CFString::make({&unit, 1}))))
            << int{unit};
    for (const double time : {std::numeric_limits<double>::quiet_NaN(), 252455616000.0, -63113904001.0})
        EXPECT_EQ("date outside the years 1 to 9999", reasonOf(List(new __CFDate(time)))) << time;
}

// Lists of every type, as wild as the two writers agree on.
class RandomLists {
public:
    explicit RandomLists(unsigned seed) : random_(seed) {}

    List make(int depth, bool tame) {
        switch (below(depth > 0 ? 9 : 7)) {
        case 0:
            return List::retained(below(2) == 0 ? kCFBooleanTrue : kCFBooleanFalse);
        case 1:
            return List(new __CFNumber(static_cast<std::int64_t>(bits())));
        case 2:
            return List(new __CFNumber(bits()));
        case 3:
            return List(new __CFNumber(tame ? 0.5 + static_cast<double>(below(1000)) : real()));
        case 4:
            return List(new __CFDate(static_cast<double>(random_() % 315569520000) - 63113904000.0));
        case 5:
            return List(new __CFData(data()));
        case 6:
            return List(text().release());
        case 7:
            return array(depth - 1, tame);
        default:
            return dictionary(depth - 1, tame);
        }
    }

private:
    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
    std::uint64_t bits() { return random_() >> below(64); }
    double real() { return std::ldexp(static_cast<double>(bits()), static_cast<int>(below(200)) - 100); }
    std::vector<std::uint8_t> data() {
        std::vector<std::uint8_t> bytes(below(120));
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(random_());
        return bytes;
    }
    port::CFRef<CFStringRef> text() {
        static const char* const pieces[] = {"a",
                                             "Z",
                                             "<&>",
                                             " ",
                                             "\n\t",
                                             "\"'",
                                             "\xC3\xA9",
                                             "\xEE\x80\x80",
                                             "\xEF\xBF\xBD",
                                             "\xF0\x9F\x98\x80",
                                             "\x7F"};
        std::string utf8;
        for (std::uint64_t count = below(6); count != 0; --count)
            utf8 += pieces[below(std::size(pieces))];
        return port::makeString(utf8);
    }
    List array(int depth, bool tame) {
        __CFArray::Values values(below(6));
        for (List& value : values)
            value = make(depth, tame);
        return List(new __CFArray(std::move(values)));
    }
    List dictionary(int depth, bool tame) {
        const auto made = CFDictionaryCreateMutable(nullptr, 0, nullptr, nullptr);
        for (std::uint64_t count = below(20); count != 0; --count)
            CFDictionarySetValue(made, text().get(), make(depth, tame).get());
        return List(made);
    }

    std::mt19937_64 random_;
};

TEST(PropertyListOracle, PlistlibReadsWhatIsWrittenAndIsReadInTurn) {
    if (std::system("python3 -c 'import plistlib' 2>/dev/null") != 0)
        GTEST_SKIP() << "no python3 with plistlib";
    constexpr int kLists = 300;
    const TestFolder folder;
    const auto file = [&](int n, const char* ending) { return folder.path() / (std::to_string(n) + ending); };
    RandomLists lists(20261122);
    std::vector<List> made;
    for (int n = 0; n < kLists; ++n) {
        // Odd ones hold reals that the two writers spell differently.
        made.push_back(lists.make(5, n % 2 == 0));
        std::string xml;
        std::string error;
        ASSERT_TRUE(port::writeXMLPropertyList(made.back().get(), xml, error)) << error;
        writeFile(file(n, ".xml"), xml);
    }
    const std::string command = "python3 " TEST_FOLDER "/plist_oracle.py " + folder.path().string();
    ASSERT_EQ(0, std::system(command.c_str()));
    for (int n = 0; n < kLists; ++n) {
        if (n % 2 == 0) {
            EXPECT_EQ(fileText(file(n, ".out")), fileText(file(n, ".xml"))) << n;
        }
        for (const char* ending : {".xml", ".bin", ".out"}) {
            std::string error;
            const List read = port::readPropertyList(bytesOf(fileText(file(n, ending))), error);
            ASSERT_TRUE(read) << n << ending << ": " << error;
            EXPECT_TRUE(CFEqual(made[static_cast<std::size_t>(n)].get(), read.get())) << n << ending;
        }
    }
}

TEST(PropertyListOracle, TheGoldenFilesHoldOneList) {
    const std::string xml = fileText(TEST_FOLDER "/data/golden.xml");
    const std::string body = rewritten(xml);
    EXPECT_EQ(xml.substr(xml.find("<dict>")), body + "</plist>\n");
    EXPECT_EQ(body, rewritten(fileText(TEST_FOLDER "/data/golden.bin")));
}

TEST(CFPropertyList, TellsTheFormatAndTheError) {
    const std::string text = fileText(TEST_FOLDER "/data/golden.bin");
    const auto size = static_cast<CFIndex>(text.size());
    const port::CFRef<CFDataRef> data(CFDataCreate(nullptr, bytesOf(text).data(), size));
    const port::CFRef<CFDataRef> half(CFDataCreate(nullptr, bytesOf(text).data(), size / 2));
    CFPropertyListFormat format = 0;
    CFErrorRef error = nullptr;
    const List list(
        CFPropertyListCreateWithData(nullptr, data.get(), kCFPropertyListImmutable, &format, &error));
    EXPECT_TRUE(list && error == nullptr);
    EXPECT_EQ(kCFPropertyListBinaryFormat_v1_0, format);
    EXPECT_EQ(nullptr, CFPropertyListCreateWithData(nullptr, half.get(), 0, nullptr, nullptr));
    EXPECT_EQ(nullptr, CFPropertyListCreateData(nullptr, list.get(), format, 0, &error));
    const port::CFRef<CFErrorRef> owned(error);
    ASSERT_TRUE(owned);
    EXPECT_EQ(kCFPropertyListWriteStreamError, CFErrorGetCode(error));
    const port::CFRef<CFStringRef> reason(CFErrorCopyDescription(error));
    EXPECT_TRUE(CFEqual(CFSTR("format that is not written"), reason.get()));
}

} // namespace
