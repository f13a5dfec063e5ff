// Dictionaries, lists, property lists, texts.
#include "../Driver.h"
#include "Cases.h"

#include <CoreFoundation/CoreFoundation.h>
#include <base/LList.h>
#include <cstring>
#include <memory>
#include <strings/LString.h>
#include <strings/LStringList.h>
#include <xpc/LXPCData.h>
#include <xpc/xpc.h>

namespace growth {
namespace {

using bench::keep;
using bench::need;
using Work = std::function<void()>;

std::shared_ptr<std::vector<std::string>> keys(unsigned n) {
    auto all = std::make_shared<std::vector<std::string>>();
    for (unsigned i = 0; i < n; ++i)
        all->push_back("key number " + std::to_string(i * 7919 % n));
    return all;
}

xpc_object_t filled(const std::vector<std::string>& names) {
    const xpc_object_t dictionary = xpc_dictionary_create(nullptr, nullptr, 0);
    for (const std::string& name : names)
        xpc_dictionary_set_bool(dictionary, name.c_str(), true);
    return dictionary;
}

Work setKeys(unsigned n) {
    return [names = keys(n)] { keep(filled(*names)); };
}

Work getKeys(unsigned n) {
    const auto names = keys(n);
    return [=, dictionary = filled(*names)] {
        for (const std::string& name : *names)
            need(xpc_dictionary_get_bool(dictionary, name.c_str()), "a key is missing");
    };
}

Work declaredKeys(unsigned n) {
    const auto names = keys(n);
    const auto declared = std::make_shared<LList<LXPCDictionaryKeyListable>>();
    for (const std::string& name : *names)
        declared->AddHead(new LXPCDictionaryKeyListable(name.c_str(), LXPCDataTypeBool));
    return [=, dictionary = filled(*names)] {
        LList<LXPCDataListable> items;
        GetXPCDictionary(dictionary, *declared, items);
        need(!items.IsEmpty(), "no key was found");
    };
}

Work manyDeclaredKeys(unsigned n) {
    const auto names = keys(n);
    const auto declared = std::make_shared<LList<LXPCDictionaryKeyListable>>();
    for (const std::string& name : *names)
        declared->AddHead(new LXPCDictionaryKeyListable(name.c_str(), LXPCDataTypeBool));
    return [=, dictionary = filled({names->front()})] {
        LList<LXPCDataListable> items;
        GetXPCDictionary(dictionary, *declared, items);
        need(!items.IsEmpty(), "no key was found");
    };
}

CFStringRef text(const std::string& content) {
    return CFStringCreateWithCString(nullptr, content.c_str(), kCFStringEncodingUTF8);
}

CFMutableDictionaryRef emptyDictionary() {
    return CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

std::vector<CFStringRef> texts(unsigned n) {
    std::vector<CFStringRef> all;
    const auto names = keys(n);
    for (const std::string& name : *names)
        all.push_back(text(name));
    return all;
}

Work setValues(unsigned n) {
    return [names = texts(n)] {
        const CFMutableDictionaryRef dictionary = emptyDictionary();
        for (const CFStringRef name : names)
            CFDictionarySetValue(dictionary, name, name);
    };
}

CFDataRef writtenList(unsigned n) {
    const CFMutableDictionaryRef dictionary = emptyDictionary();
    for (const CFStringRef name : texts(n))
        CFDictionarySetValue(dictionary, name, name);
    return CFPropertyListCreateData(nullptr, dictionary, kCFPropertyListXMLFormat_v1_0, 0, nullptr);
}

Work readList(unsigned n) {
    return [data = writtenList(n)] {
        need(CFPropertyListCreateWithData(nullptr, data, 0, nullptr, nullptr) != nullptr,
             "the list was not read");
    };
}

Work writeList(unsigned n) {
    const CFPropertyListRef list = CFPropertyListCreateWithData(nullptr, writtenList(n), 0, nullptr, nullptr);
    return [list] {
        need(CFPropertyListCreateData(nullptr, list, kCFPropertyListXMLFormat_v1_0, 0, nullptr) != nullptr,
             "the list was not written");
    };
}

struct Item {
    Item* pNext = nullptr;
};

Work listItems(unsigned n) {
    return [n] {
        LList<Item> list;
        for (unsigned i = 0; i < n; ++i)
            list.AddHead(new Item);
        list.Clear();
    };
}

Work stringListItems(unsigned n) {
    return [n] {
        LStringListTemplate<char> list;
        for (unsigned i = 0; i < n; ++i)
            std::strcpy(list.Add(8), "a word");
    };
}

Work append(unsigned n) {
    return [n] {
        LStringLongTemplate<char> all;
        for (unsigned i = 0; i < n; ++i)
            all.Append("a word of some length ");
    };
}

Work appendFormatted(unsigned n) {
    return [n] {
        LStringLongTemplate<char> all;
        for (unsigned i = 0; i < n; ++i)
            all.tsprintfappend("%s", "a word of some length ");
    };
}

} // namespace

constexpr char kKeys[] = "looked for one by one, among 1,024 at most; messages have a few";

std::vector<Case> objectCases() {
    return {
        {"keys set in a message", 128, setKeys, 2.4, kKeys},
        {"keys looked up in a message", 128, getKeys, 2.4, kKeys},
        {"keys declared by a receiver, all in the message", 128, declaredKeys, 2.4, kKeys},
        {"keys declared by a receiver, one in the message", 128, manyDeclaredKeys},
        {"values set in a dictionary", 1000, setValues},
        {"values of a property list that is read", 1000, readList},
        {"values of a property list that is written", 1000, writeList},
        {"items of a list, added and cleared", 1000, listItems},
        {"items added to a list of strings", 1000, stringListItems},
        {"`tsprintfappend` in a loop", 1000, appendFormatted},
        {"`Append` in a loop", 1000, append, 2.1,
         "grows to exactly what is needed; `tsprintfappend` does not"},
    };
}

} // namespace growth
