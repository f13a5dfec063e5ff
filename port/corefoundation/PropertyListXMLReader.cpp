#include "corefoundation/CFContainers.h"
#include "corefoundation/CFString.h"
#include "corefoundation/CFValues.h"
#include "corefoundation/PropertyList.h"
#include "corefoundation/PropertyListTexts.h"

#include <algorithm>
#include <array>
#include <expat.h>
#include <memory>
#include <utility>

namespace port {
namespace {

enum class Element { List, Dictionary, Array, Key, String, Integer, Real, Date, Data, True, False, None };

constexpr std::array<std::pair<std::string_view, Element>, 11> kElements = {{
    {"key", Element::Key},
    {"string", Element::String},
    {"dict", Element::Dictionary},
    {"array", Element::Array},
    {"true", Element::True},
    {"false", Element::False},
    {"integer", Element::Integer},
    {"real", Element::Real},
    {"date", Element::Date},
    {"data", Element::Data},
    {"plist", Element::List},
}};

Element elementNamed(std::string_view name) {
    const auto* found = std::find_if(kElements.begin(), kElements.end(),
                                     [&](const auto& element) { return element.first == name; });
    return found == kElements.end() ? Element::None : found->second;
}

bool isBlank(std::string_view text) {
    return text.find_first_not_of(" \t\n\r") == std::string_view::npos;
}

struct ParserEnd {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

// One pass over the text: expat calls the members below in document order.
class XMLReader {
public:
    XMLReader() : parser_(XML_ParserCreate(nullptr)) {
        XML_SetUserData(parser_.get(), this);
        XML_SetElementHandler(parser_.get(), onStart, onEnd);
        XML_SetCharacterDataHandler(parser_.get(), onText);
        XML_SetStartDoctypeDeclHandler(parser_.get(), onDoctype);
        XML_SetSkippedEntityHandler(parser_.get(), onSkippedEntity);
    }

    CFRef<CFPropertyListRef> read(Bytes bytes, std::string& error);

private:
    // A container that is still open.
    struct Frame {
        bool isDictionary;
        CFRef<CFStringRef> key; // waits for its value
        __CFDictionary::Entries entries;
        __CFArray::Values values;
    };

    static void onStart(void* reader, const char* name, const char** attributes);
    static void onEnd(void* reader, const char* name);
    static void onText(void* reader, const char* text, int length);
    static void onDoctype(void* reader, const char* name, const char* system, const char* pub, int hasSubset);
    static void onSkippedEntity(void* reader, const char* name, int isParameter);

    void start(std::string_view name);
    void startKey();
    void startValue(Element element);
    void end();
    void endContainer();
    void endKey();
    CFRef<CFTypeRef> valueOfText();
    void add(CFRef<CFTypeRef> value);
    void fail(std::string_view reason);

    bool inDictionary() const { return !frames_.empty() && frames_.back().isDictionary; }

    std::unique_ptr<XML_ParserStruct, ParserEnd> parser_;
    std::vector<Frame> frames_;
    Element leaf_ = Element::None; // the element whose text is being collected
    std::string text_;
    std::size_t nodes_ = 0;
    bool inList_ = false;
    CFRef<CFTypeRef> list_;
    std::string error_;
};

CFRef<CFPropertyListRef> XMLReader::read(Bytes bytes, std::string& error) {
    const auto* text = reinterpret_cast<const char*>(bytes.data());
    if (XML_Parse(parser_.get(), text, static_cast<int>(bytes.size()), XML_TRUE) != XML_STATUS_OK)
        fail(XML_ErrorString(XML_GetErrorCode(parser_.get())));
    else if (!list_)
        fail("no value in the list");
    if (error_.empty())
        return std::move(list_);
    error = error_;
    return {};
}

void XMLReader::onStart(void* reader, const char* name, const char**) {
    static_cast<XMLReader*>(reader)->start(name);
}

void XMLReader::onEnd(void* reader, const char*) {
    static_cast<XMLReader*>(reader)->end();
}

void XMLReader::onText(void* reader, const char* text, int length) {
    auto& self = *static_cast<XMLReader*>(reader);
    const std::string_view piece(text, static_cast<std::size_t>(length));
    if (self.leaf_ == Element::None || self.leaf_ == Element::True || self.leaf_ == Element::False) {
        if (!isBlank(piece))
            self.fail("text outside a value");
        return;
    }
    const bool isString = self.leaf_ == Element::String || self.leaf_ == Element::Key;
    if (isString && self.text_.size() + piece.size() > kPropertyListStringLimit)
        self.fail("string too long");
    else
        self.text_.append(piece);
}

// Declarations of its own would let a small file unfold into a huge one.
void XMLReader::onDoctype(void* reader, const char*, const char*, const char*, int hasSubset) {
    if (hasSubset != 0)
        static_cast<XMLReader*>(reader)->fail("document type with declarations of its own");
}

// An external document type is never read, and expat would drop the entities it might declare in silence.
void XMLReader::onSkippedEntity(void* reader, const char*, int) {
    static_cast<XMLReader*>(reader)->fail("unknown entity");
}

void XMLReader::start(std::string_view name) {
    if (!error_.empty())
        return;
    const Element element = elementNamed(name);
    if (element == Element::None)
        return fail("unknown element");
    if (leaf_ != Element::None)
        return fail("element inside a plain value");
    if ((element == Element::List) == inList_)
        return fail("misplaced list element");
    if (element == Element::List)
        inList_ = true;
    else if (element == Element::Key)
        startKey();
    else
        startValue(element);
}

void XMLReader::startKey() {
    if (!inDictionary())
        return fail("key outside a dictionary");
    if (frames_.back().key)
        return fail("key without a value");
    leaf_ = Element::Key;
}

void XMLReader::startValue(Element element) {
    if (frames_.empty() && list_)
        return fail("second value in the list");
    if (inDictionary() && !frames_.back().key)
        return fail("value without a key");
    if (++nodes_ > kPropertyListNodeLimit)
        return fail("too many values");
    if (element != Element::Dictionary && element != Element::Array) {
        leaf_ = element;
        return;
    }
    if (frames_.size() == kPropertyListDepthLimit)
        return fail("nested too deep");
    frames_.push_back({element == Element::Dictionary, {}, {}, {}});
}

void XMLReader::end() {
    if (!error_.empty())
        return;
    if (leaf_ == Element::None)
        return endContainer();
    if (leaf_ == Element::Key)
        endKey();
    else
        add(valueOfText());
    leaf_ = Element::None;
    text_.clear();
}

void XMLReader::endContainer() {
    if (frames_.empty())
        return; // the list itself
    Frame frame = std::move(frames_.back());
    frames_.pop_back();
    if (frame.key)
        return fail("key without a value");
    if (frame.isDictionary)
        add(CFRef<CFTypeRef>(new __CFDictionary(std::move(frame.entries))));
    else
        add(CFRef<CFTypeRef>(new __CFArray(std::move(frame.values))));
}

void XMLReader::endKey() {
    frames_.back().key = makeString(text_);
}

// Null when the text is none of the element's values.
CFRef<CFTypeRef> XMLReader::valueOfText() {
    switch (leaf_) {
    case Element::String:
        return CFRef<CFTypeRef>(makeString(text_).release());
    case Element::Integer:
        return CFRef<CFTypeRef>(parseInteger(text_).release());
    case Element::Real:
        return CFRef<CFTypeRef>(parseReal(text_).release());
    case Element::Date:
        return CFRef<CFTypeRef>(parseDate(text_).release());
    case Element::Data:
        return CFRef<CFTypeRef>(parseData(text_).release());
    case Element::True:
        return CFRef<CFTypeRef>::retained(kCFBooleanTrue);
    case Element::False:
        return CFRef<CFTypeRef>::retained(kCFBooleanFalse);
    default:
        return {};
    }
}

void XMLReader::add(CFRef<CFTypeRef> value) {
    if (!value)
        return fail("malformed value");
    if (frames_.empty())
        list_ = std::move(value);
    else if (frames_.back().isDictionary)
        frames_.back().entries.push_back({std::move(frames_.back().key), std::move(value)});
    else
        frames_.back().values.push_back(std::move(value));
}

// The first reason stays; expat may still finish the event it is in.
void XMLReader::fail(std::string_view reason) {
    if (!error_.empty())
        return;
    error_ = "line " + std::to_string(XML_GetCurrentLineNumber(parser_.get())) + ": ";
    error_ += reason;
    XML_StopParser(parser_.get(), XML_FALSE);
}

} // namespace

CFRef<CFPropertyListRef> readXMLPropertyList(Bytes bytes, std::string& error) {
    return XMLReader().read(bytes, error);
}

} // namespace port
