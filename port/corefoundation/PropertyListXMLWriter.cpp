#include "corefoundation/CFContainers.h"
#include "corefoundation/CFString.h"
#include "corefoundation/CFValues.h"
#include "corefoundation/PropertyList.h"
#include "corefoundation/PropertyListTexts.h"

#include <algorithm>

namespace port {
namespace {

constexpr std::string_view kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
constexpr std::string_view kTail = "</plist>\n";

// Lines of data stay within this width, a tab counted as eight, but hold at least sixteen characters.
constexpr std::size_t kDataWidth = 76;
constexpr std::size_t kLeastDataWidth = 16;
constexpr std::size_t kTabWidth = 8;

// Characters that XML has no way to write, not even as a reference.
bool isWritable(std::string_view utf8) {
    const bool controls = std::any_of(utf8.begin(), utf8.end(), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r';
    });
    return !controls && utf8.find("\xEF\xBF\xBE") == std::string_view::npos &&
           utf8.find("\xEF\xBF\xBF") == std::string_view::npos;
}

class XMLWriter {
public:
    explicit XMLWriter(std::string& xml) : xml_(xml) {}

    // Null when all of it was written, else the reason.
    const char* write(CFTypeRef list) {
        xml_ = kHead;
        const char* const reason = writeValue(list);
        xml_ += kTail;
        return reason == nullptr && xml_.size() > kPropertyListFileLimit ? "list too long" : reason;
    }

private:
    const char* writeValue(CFTypeRef value);
    const char* writeText(std::string_view element, CFStringRef string);
    const char* writeArray(const __CFArray& array);
    const char* writeDictionary(const __CFDictionary& dictionary);
    const char* writeDate(CFDateRef date);
    void writeNumber(CFNumberRef number);
    const char* writeData(Bytes bytes);
    void writeEscaped(std::string_view text);
    void writeLine(std::string_view line);
    void startLine() { xml_.append(depth_, '\t'); }

    std::string& xml_;
    std::string utf8_; // kept for its room
    std::size_t depth_ = 0;
    std::size_t nodes_ = 0;
};

const char* XMLWriter::writeValue(CFTypeRef value) {
    if (value == nullptr)
        return "null value";
    if (++nodes_ > kPropertyListNodeLimit)
        return "too many values";
    // Values that are shared can unfold to any size; the rest is not worth writing.
    if (xml_.size() > kPropertyListFileLimit)
        return "list too long";
    switch (objectOf(value).kind()) {
    case CFKind::String:
        return writeText("string", static_cast<CFStringRef>(value));
    case CFKind::Array:
        return writeArray(*static_cast<CFArrayRef>(value));
    case CFKind::Dictionary:
        return writeDictionary(*static_cast<CFDictionaryRef>(value));
    case CFKind::Date:
        return writeDate(static_cast<CFDateRef>(value));
    case CFKind::Number:
        writeNumber(static_cast<CFNumberRef>(value));
        return nullptr;
    case CFKind::Data:
        return writeData(static_cast<CFDataRef>(value)->bytes);
    case CFKind::Boolean:
        writeLine(static_cast<CFBooleanRef>(value)->value ? "<true/>" : "<false/>");
        return nullptr;
    default:
        return "object that no list holds";
    }
}

const char* XMLWriter::writeText(std::string_view element, CFStringRef string) {
    if (!copyUtf8(string, utf8_) || !isWritable(utf8_))
        return "character that XML cannot hold";
    if (utf8_.size() > kPropertyListStringLimit)
        return "string too long";
    startLine();
    xml_.append("<").append(element).append(">");
    writeEscaped(utf8_);
    xml_.append("</").append(element).append(">\n");
    return nullptr;
}

const char* XMLWriter::writeArray(const __CFArray& array) {
    if (depth_ == kPropertyListDepthLimit)
        return "nested too deep";
    if (array.values.empty()) {
        writeLine("<array/>");
        return nullptr;
    }
    writeLine("<array>");
    ++depth_;
    for (const auto& value : array.values)
        if (const char* const reason = writeValue(value.get()))
            return reason;
    --depth_;
    writeLine("</array>");
    return nullptr;
}

const char* XMLWriter::writeDictionary(const __CFDictionary& dictionary) {
    if (depth_ == kPropertyListDepthLimit)
        return "nested too deep";
    if (dictionary.entries().empty()) {
        writeLine("<dict/>");
        return nullptr;
    }
    writeLine("<dict>");
    ++depth_;
    for (const auto& [key, value] : dictionary.entries()) {
        if (const char* const reason = writeText("key", key.get()))
            return reason;
        if (const char* const reason = writeValue(value.get()))
            return reason;
    }
    --depth_;
    writeLine("</dict>");
    return nullptr;
}

const char* XMLWriter::writeDate(CFDateRef date) {
    startLine();
    xml_.append("<date>");
    if (!appendDate(date, xml_))
        return "date outside the years 1 to 9999";
    xml_.append("</date>\n");
    return nullptr;
}

void XMLWriter::writeNumber(CFNumberRef number) {
    startLine();
    xml_.append(number->isReal ? "<real>" : "<integer>");
    appendNumber(number, xml_);
    xml_.append(number->isReal ? "</real>\n" : "</integer>\n");
}

const char* XMLWriter::writeData(Bytes bytes) {
    if (bytes.size() > kPropertyListFileLimit)
        return "list too long";
    const std::size_t indent = std::min(depth_ * kTabWidth, kDataWidth - kLeastDataWidth);
    const std::size_t bytesALine = (kDataWidth - indent) / 4 * 3;
    writeLine("<data>");
    while (!bytes.empty()) {
        const Bytes line = bytes.first(std::min(bytesALine, bytes.size()));
        startLine();
        appendData(line, xml_);
        xml_ += '\n';
        bytes = bytes.subspan(line.size());
    }
    writeLine("</data>");
    return nullptr;
}

void XMLWriter::writeEscaped(std::string_view text) {
    for (std::size_t special = 0; (special = text.find_first_of("&<>\r")) != std::string_view::npos;) {
        xml_.append(text.substr(0, special));
        switch (text[special]) {
        case '&':
            xml_.append("&amp;");
            break;
        case '<':
            xml_.append("&lt;");
            break;
        case '>':
            xml_.append("&gt;");
            break;
        default:
            xml_.append("&#13;"); // a bare one would be read as a line feed
        }
        text.remove_prefix(special + 1);
    }
    xml_.append(text);
}

void XMLWriter::writeLine(std::string_view line) {
    startLine();
    xml_.append(line).append("\n");
}

} // namespace

bool writeXMLPropertyList(CFPropertyListRef list, std::string& xml, std::string& error) {
    const char* const reason = XMLWriter(xml).write(list);
    if (reason != nullptr)
        error = reason;
    return reason == nullptr;
}

} // namespace port
