#include "Support.h"

#include "corefoundation/CFContainers.h"
#include "corefoundation/CFValues.h"

#include <cmath>

namespace {

using List = port::CFRef<CFPropertyListRef>;

std::string wrapped(std::string_view value) {
    return "<plist>" + std::string(value) + "</plist>";
}

std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    while (count-- > 0)
        all += text;
    return all;
}

TEST(PropertyListXML, ListsAreReadOrRefusedWithTheirLine) {
    expectResults({
        {"<string></string>\n", {wrapped("<string/>")}},
        {"<string> a\nb </string>\n", {wrapped("<string> a\n<!-- -->b </string>")}},
        {"<string>a&#13;\n\xE2\x82\xAC</string>\n", {wrapped("<string>a&#13;\r\n&#x20AC;</string>")}},
        {"<string>&lt;b&gt;\"</string>\n", {wrapped("<string><![CDATA[<b>]]>&quot;</string>")}},
        {"<string>\xC3\xA9</string>\n",
         {"<?xml version='1.0' encoding='ISO-8859-1'?>" + wrapped("<string>\xE9</string>")}},
        {"<integer>0</integer>\n", {wrapped("<integer> -0 </integer>")}},
        {"<integer>255</integer>\n", {wrapped("<integer>+0xFF</integer>")}},
        {"<real>-1500</real>\n", {wrapped("<real>-1.5e3</real>")}},
        {"<real>0.1</real>\n", {wrapped("<real>.1000</real>")}},
        {"<real>4.94065645841247e-324</real>\n", {wrapped("<real>5e-324</real>")}},
        {"<real>inf</real>\n", {wrapped("<real>+Infinity</real>")}},
        {"<date>0001-01-01T00:00:00Z</date>\n", {wrapped("<date>0001-01-01T00:00:00Z</date>")}},
        {"<date>9999-12-31T23:59:59Z</date>\n", {wrapped("<date>9999-12-31T23:59:59Z</date>")}},
        {"<data>\nAA==\n</data>\n", {wrapped("<data> AA\n== </data>")}},
        {"<dict>\n\t<key>a</key>\n\t<array/>\n\t<key>b</key>\n\t<false/>\n</dict>\n",
         {wrapped("<dict><key>b</key><true/><key>a</key><array/><key>b</key><false/></dict>")}},
        {"<true/>\n", {"\xEF\xBB\xBF<!DOCTYPE plist SYSTEM 'x'><?pi?>" + wrapped("<true/>") + "<!-- -->"}},
        {"line 1: document type with declarations of its own", {"<!DOCTYPE plist []>" + wrapped("<true/>")}},
        {"line 2: unknown entity", {"<!DOCTYPE plist SYSTEM 'x.dtd'>\n" + wrapped("<string>&a;</string>")}},
        {"line 1: not well-formed (invalid token)", {"{ a = b; }", wrapped("<string>\xC0\x80</string>")}},
        {"line 1: no value in the list", {"<plist/>"}},
        {"line 1: misplaced list element", {"<true/>", wrapped("<plist/>")}},
        {"line 2: second value in the list", {wrapped("<true/>\n<true/>")}},
        {"line 1: unknown element", {wrapped("<null/>")}},
        {"line 1: element inside a plain value", {wrapped("<string>a<true/></string>")}},
        {"line 3: text outside a value", {wrapped("\n\nx<true/>"), wrapped("<true>\n\n1</true>")}},
        {"line 1: key outside a dictionary", {wrapped("<array><key>a</key></array>")}},
        {"line 1: value without a key", {wrapped("<dict><true/></dict>")}},
        {"line 1: key without a value",
         {wrapped("<dict><key/></dict>"), wrapped("<dict><key/><key/></dict>")}},
    });
}

TEST(PropertyListXML, MalformedValuesAreNeverReadAsSomethingElse) {
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {"integer", {" ", "+-1", "1 2", "1.0", "0x", "18446744073709551616", "-9223372036854775809"}},
        {"real", {"", ".", "+-1", "1,5", "1e", "1e999", "1e-999", "0x10", "nan(1)"}},
        {"date",
         {"", "2023-02-29T00:00:00Z", "2024-00-01T00:00:00Z", "2024-01-01T24:00:00Z", "2024-01-01T00:60:00Z",
          "2024-01-01T00:00:60Z", "2024-01-01T00:00:00", "0000-01-01T00:00:00Z", "+024-01-01T00:00:00Z"}},
        {"data", {"AAA", "AAAAA", "====", "A===", "AA=A", "AA==AA==", "AB==", "AAB=", "A*==", "AAAA="}},
    };
    for (const auto& [element, texts] : rows)
        for (const std::string& text : texts)
            expectResults({{"line 2: malformed value",
                            {wrapped("\n<" + element + ">" + text + "</" + element + ">")}}});
}

TEST(PropertyListXML, LimitsHoldAtAndOnePast) {
    expectLimit("nested too deep", port::kPropertyListDepthLimit, [](std::size_t depth) {
        return wrapped(repeated("<array>", depth) + repeated("</array>", depth));
    });
    expectLimit("too many values", port::kPropertyListNodeLimit, [](std::size_t count) {
        return wrapped("<array>" + repeated("<true/>", count - 1) + "</array>");
    });
    expectLimit("string too long", port::kPropertyListStringLimit, [](std::size_t size) {
        return wrapped("<dict><key>" + std::string(size, 'x') + "</key><true/></dict>");
    });
    expectLimit("list too long", port::kPropertyListFileLimit, [](std::size_t size) {
        return std::string(size - wrapped("<true/>").size(), ' ') + wrapped("<true/>");
    });
}

TEST(PropertyListXML, WhatXMLCannotHoldIsNotWritten) {
    const auto arrayOf = [](std::vector<List> values) { return List(new __CFArray(std::move(values))); };
    const auto text = [](std::size_t size) { return List(__CFString::makeAscii(std::string(size, 'x'))); };
    List deep = arrayOf({});
    for (std::size_t i = 0; i < port::kPropertyListDepthLimit; ++i)
        deep = arrayOf({deep});
    std::vector<std::pair<List, std::string_view>> rows = {
        {List(new __CFError(1, "")), "object that no list holds"},
        {arrayOf({List()}), "null value"},
        {deep, "nested too deep"},
        {arrayOf(std::vector<List>(port::kPropertyListNodeLimit, arrayOf({}))), "too many values"},
        {text(port::kPropertyListStringLimit + 1), "string too long"},
        {arrayOf(std::vector<List>(1000, text(port::kPropertyListStringLimit))), "list too long"},
        {List(new __CFData(std::vector<std::uint8_t>(port::kPropertyListFileLimit))), "list too long"},
        {List(new __CFDate(std::nan(""))), "date outside the years 1 to 9999"},
        {List(new __CFDate(252455616000.0)), "date outside the years 1 to 9999"},
        {List(new __CFDate(-63113904001.0)), "date outside the years 1 to 9999"},
    };
    for (const char16_t unit : {u'\0', u'\v', u'\x1F', u'\uFFFE', u'\uFFFF', char16_t{0xD800}})
        rows.push_back({List(__CFString::make({&unit, 1})), "character that XML cannot hold"});
    for (const auto& [list, reason] : rows) {
        std::string xml;
        std::string error;
        EXPECT_EQ(reason, port::writeXMLPropertyList(list.get(), xml, error) ? "written" : error);
    }
}

// The two forms of one list, the XML in the canonical form.
void expectOneList(const std::string& path) {
    const std::string xml = FileText(path + ".xml");
    EXPECT_EQ(bodyOf(xml), rewritten(xml)) << path;
    EXPECT_EQ(bodyOf(xml), rewritten(FileText(path + ".bin"))) << path;
}

TEST(PropertyListOracle, ReadsAndWritesWhatPlistlibWrites) {
    expectOneList(TEST_FOLDER "/data/golden");
    if (std::system("python3 -c 'import plistlib' 2>/dev/null") != 0)
        GTEST_SKIP() << "no python3 with plistlib";
    const TemporaryFolder folder;
    ASSERT_EQ(0,
              std::system(("python3 \"" TEST_FOLDER "/plist_oracle.py\" " + folder.root.string()).c_str()));
    for (int n = 0; n < 300; ++n)
        expectOneList(folder.root / std::to_string(n));
}

TEST(PropertyListOracle, NoBeginningOfAListIsAList) {
    for (const char* path : {TEST_FOLDER "/data/golden.bin", TEST_FOLDER "/data/golden.xml"}) {
        const std::string good = FileText(path);
        for (std::size_t size = 0; size + 1 < good.size(); ++size)
            EXPECT_FALSE(rewritten(good.substr(0, size)).starts_with('<')) << path << size;
    }
}

TEST(CFPropertyList, IsWrittenAsXMLOnly) {
    const std::string binary = FileText(TEST_FOLDER "/data/golden.bin");
    const port::CFRef<CFDataRef> data(new __CFData({binary.begin(), binary.end()}));
    CFPropertyListFormat format = 0;
    const List list(CFPropertyListCreateWithData(nullptr, data.get(), 0, &format, nullptr));
    ASSERT_TRUE(list);
    CFErrorRef error = nullptr;
    EXPECT_EQ(nullptr, CFPropertyListCreateData(nullptr, list.get(), format, 0, &error));
    EXPECT_EQ("format that is not written", textOf(String(CFErrorCopyDescription(error))));
    CFRelease(error);
    const port::CFRef<CFDataRef> xml(
        CFPropertyListCreateData(nullptr, list.get(), kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    EXPECT_EQ(FileText(TEST_FOLDER "/data/golden.xml"),
              std::string(xml.get()->bytes.begin(), xml.get()->bytes.end()));
}

} // namespace
