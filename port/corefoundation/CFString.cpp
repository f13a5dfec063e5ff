#include "corefoundation/CFString.h"

#include "corefoundation/CFStringEncodings.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

// ASCII looks the same in all the encodings of bytes.
bool isEightBit(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingUTF8 || encoding == kCFStringEncodingISOLatin1 ||
           encoding == kCFStringEncodingWindowsLatin1;
}

std::string_view textOf(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

CFStringRef makeFrom(std::span<const std::uint8_t> bytes, CFStringEncoding encoding) {
    if (isEightBit(encoding) && port::isAsciiText(bytes))
        return __CFString::makeAscii(textOf(bytes));
    std::u16string units;
    return port::decodeText(bytes, encoding, units) ? __CFString::make(units) : nullptr;
}

std::optional<std::size_t> sizeIn(CFStringEncoding encoding, CFStringRef string) {
    if (!string->isAscii())
        return port::encodedSize(string->units(), encoding);
    if (isEightBit(encoding))
        return string->length();
    return encoding == kCFStringEncodingUnicode ? std::optional(string->length() * sizeof(char16_t))
                                                : std::nullopt;
}

void writeIn(CFStringEncoding encoding, CFStringRef string, char* bytes) {
    if (!string->isAscii()) {
        port::encodeText(string->units(), encoding, bytes);
    } else if (isEightBit(encoding)) {
        string->ascii().copy(bytes, string->length());
    } else {
        for (const char character : string->ascii()) {
            const char16_t unit = static_cast<unsigned char>(character);
            std::memcpy(bytes, &unit, sizeof unit);
            bytes += sizeof unit;
        }
    }
}

// Code units sort as their code points do once surrogates stand above everything else.
unsigned rankOf(char16_t unit) {
    if (unit < 0xD800)
        return unit;
    return unit <= 0xDFFF ? unit + 0x2000u : unit - 0x800u;
}

} // namespace

CFStringRef __CFString::makeAscii(std::string_view ascii) {
    void* const block = operator new(sizeof(__CFString) + ascii.size());
    char* const text = static_cast<char*>(block) + sizeof(__CFString);
    ascii.copy(text, ascii.size());
    return ::new (block) __CFString(ascii.size(), text, nullptr);
}

CFStringRef __CFString::make(std::u16string_view units) {
    const bool ascii = port::isAsciiText(units);
    void* const block = operator new(sizeof(__CFString) +
                                     units.size() * (ascii ? sizeof(char) : sizeof(char16_t)));
    void* const text = static_cast<char*>(block) + sizeof(__CFString);
    if (!ascii) {
        units.copy(static_cast<char16_t*>(text), units.size());
        return ::new (block) __CFString(units.size(), nullptr, static_cast<char16_t*>(text));
    }
    std::transform(units.begin(), units.end(), static_cast<char*>(text),
                   [](char16_t unit) { return static_cast<char>(unit); });
    return ::new (block) __CFString(units.size(), static_cast<char*>(text), nullptr);
}

bool __CFString::equals(const CFObject& other) const {
    const auto& string = static_cast<const __CFString&>(other);
    if (this == &string)
        return true;
    if (isAscii() != string.isAscii())
        return false;
    return isAscii() ? ascii() == string.ascii() : units() == string.units();
}

namespace port {

CFRef<CFStringRef> makeString(std::string_view utf8) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(utf8.data());
    return CFRef<CFStringRef>(makeFrom({bytes, utf8.size()}, kCFStringEncodingUTF8));
}

bool copyUtf8(CFStringRef string, std::string& utf8) {
    const std::optional<std::size_t> size = sizeIn(kCFStringEncodingUTF8, string);
    utf8.resize(size.value_or(0));
    if (size)
        writeIn(kCFStringEncodingUTF8, string, utf8.data());
    return size.has_value();
}

int compareByCodePoint(CFStringRef first, CFStringRef second) {
    if (first == second)
        return 0;
    if (first->isAscii() && second->isAscii())
        return first->ascii().compare(second->ascii());
    const std::size_t common = std::min(first->length(), second->length());
    for (std::size_t i = 0; i < common; ++i) {
        const unsigned one = rankOf(first->unitAt(i));
        const unsigned other = rankOf(second->unitAt(i));
        if (one != other)
            return one < other ? -1 : 1;
    }
    return first->length() == second->length() ? 0 : first->length() < second->length() ? -1 : 1;
}

} // namespace port

CFTypeID CFStringGetTypeID() {
    return static_cast<CFTypeID>(port::CFKind::String);
}

CFStringEncoding CFStringGetSystemEncoding() {
    return kCFStringEncodingUTF8;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean) {
    return makeFrom({bytes, static_cast<std::size_t>(length)}, encoding);
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef, const char* text, CFStringEncoding encoding) {
    if (!isEightBit(encoding))
        return nullptr;
    return makeFrom({reinterpret_cast<const std::uint8_t*>(text), std::strlen(text)}, encoding);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* units, CFIndex length) {
    return makeFrom(
        {reinterpret_cast<const std::uint8_t*>(units), static_cast<std::size_t>(length) * sizeof(UniChar)},
        kCFStringEncodingUnicode);
}

CFIndex CFStringGetLength(CFStringRef string) {
    return static_cast<CFIndex>(string->length());
}

void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer) {
    const auto first = static_cast<std::size_t>(range.location);
    for (std::size_t i = 0; i < static_cast<std::size_t>(range.length); ++i)
        buffer[i] = string->unitAt(first + i);
}

Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size, CFStringEncoding encoding) {
    const std::size_t room = size < 0 ? 0 : static_cast<std::size_t>(size);
    const std::size_t terminator = port::unitSize(encoding);
    if (room < terminator)
        return false;
    const std::optional<std::size_t> needed = sizeIn(encoding, string);
    const bool fits = needed && *needed <= room - terminator;
    if (fits)
        writeIn(encoding, string, buffer);
    std::memset(buffer + (fits ? *needed : 0), 0, terminator);
    return fits;
}

Boolean CFStringGetPascalString(CFStringRef string, StringPtr buffer, CFIndex size,
                                CFStringEncoding encoding) {
    constexpr std::size_t kLongest = 255;
    if (size < 1)
        return false;
    const std::optional<std::size_t> needed = sizeIn(encoding, string);
    const bool fits = needed && *needed <= std::min(kLongest, static_cast<std::size_t>(size) - 1);
    if (fits)
        writeIn(encoding, string, reinterpret_cast<char*>(buffer) + 1);
    buffer[0] = fits ? static_cast<unsigned char>(*needed) : 0;
    return fits;
}
