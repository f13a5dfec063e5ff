// Short hands for the tests of Core Foundation.
#pragma once

#include <gtest/gtest.h>

#include "corefoundation/CFString.h"
#include "corefoundation/CFURL.h"
#include "corefoundation/PropertyList.h"
#include "support/Bundle.h"
#include "support/TemporaryFolder.h"

using String = port::CFRef<CFStringRef>;
using URL = port::CFRef<CFURLRef>;

inline port::Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

inline std::string textOf(const String& string) {
    std::string utf8;
    return string && port::copyUtf8(string.get(), utf8) ? utf8 : "(null)";
}

inline std::string pathOf(const URL& url) {
    return url ? textOf(String(CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle))) : "(null)";
}

// An XML list without its head and tail.
inline std::string bodyOf(const std::string& xml) {
    const std::size_t first = xml.find("<plist version=\"1.0\">\n") + 22;
    return xml.substr(first, xml.rfind("</plist>") - first);
}

// The body of the list in its canonical form, or the reason why there is none.
inline std::string rewritten(std::string_view list) {
    std::string error;
    std::string xml;
    const auto read = port::readPropertyList(bytesOf(list), error);
    return read && port::writeXMLPropertyList(read.get(), xml, error) ? bodyOf(xml) : error;
}

// Holds at the limit, and one past it fails for this reason.
template <typename Make>
void expectLimit(const std::string& reason, std::size_t limit, const Make& make) {
    EXPECT_TRUE(rewritten(make(limit)).starts_with('<')) << reason;
    EXPECT_TRUE(rewritten(make(limit + 1)).ends_with(": " + reason)) << reason;
}

// What `rewritten` tells, and the lists of which it tells that.
using Results = std::vector<std::pair<std::string, std::vector<std::string>>>;

inline void expectResults(const Results& rows) {
    for (const auto& [result, lists] : rows)
        for (const std::string& list : lists)
            EXPECT_EQ(result, rewritten(list)) << testing::PrintToString(list);
}
