#include <CoreFoundation/CoreFoundation.h>

#include <cstdlib>
#include <string_view>
#include <utility>

#include "corefoundation/CFString.h"

struct __CFLocale final : port::CFObject {
    explicit __CFLocale(port::CFRef<CFStringRef> name)
        : CFObject(port::CFKind::Locale), identifier(std::move(name)) {}

    const port::CFRef<CFStringRef> identifier;
};

namespace {

std::string_view nameInEnvironment() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* const value = std::getenv(variable);
        if (value != nullptr && *value != '\0')
            return value;
    }
    return {};
}

} // namespace

CFLocaleRef CFLocaleCopyCurrent() {
    std::string_view name = nameInEnvironment();
    name = name.substr(0, name.find_first_of(".@"));
    if (name == "C" || name == "POSIX")
        name = {};
    port::CFRef<CFStringRef> identifier = port::makeString(name);
    return new __CFLocale(identifier ? std::move(identifier) : port::makeString(""));
}

CFStringRef CFLocaleGetIdentifier(CFLocaleRef locale) {
    return locale->identifier.get();
}
