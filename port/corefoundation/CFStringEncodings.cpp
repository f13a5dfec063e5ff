#include "corefoundation/CFStringEncodings.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace port {
namespace {

constexpr char16_t kSurrogateFirst = 0xD800;
constexpr char16_t kLowSurrogateFirst = 0xDC00;
constexpr char16_t kSurrogateLast = 0xDFFF;

// Windows Latin-1 from 80 to 9F; the five codes without a character stand for the controls of their value.
constexpr std::array<char16_t, 32> kWindowsLatin1High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

bool isSurrogate(char16_t unit) {
    return unit >= kSurrogateFirst && unit <= kSurrogateLast;
}

// A high surrogate with its low one after it.
bool isPairAt(std::u16string_view units, std::size_t i) {
    return units[i] < kLowSurrogateFirst && i + 1 < units.size() && units[i + 1] >= kLowSurrogateFirst &&
           units[i + 1] <= kSurrogateLast;
}

// What a lead byte asks of its sequence: the bytes that follow, and the range of the first of them, which
// keeps out overlong forms, surrogates and values above 10FFFF.
struct Lead {
    std::size_t following;
    std::uint8_t low;
    std::uint8_t high;
};

Lead leadOf(std::uint8_t byte) {
    if (byte >= 0xC2 && byte <= 0xDF)
        return {1, 0x80, 0xBF};
    if (byte >= 0xE0 && byte <= 0xEF)
        return {2, byte == 0xE0 ? std::uint8_t{0xA0} : std::uint8_t{0x80},
                byte == 0xED ? std::uint8_t{0x9F} : std::uint8_t{0xBF}};
    if (byte >= 0xF0 && byte <= 0xF4)
        return {3, byte == 0xF0 ? std::uint8_t{0x90} : std::uint8_t{0x80},
                byte == 0xF4 ? std::uint8_t{0x8F} : std::uint8_t{0xBF}};
    return {0, 0, 0};
}

void appendCodePoint(char32_t point, std::u16string& units) {
    if (point < 0x10000) {
        units.push_back(static_cast<char16_t>(point));
        return;
    }
    units.push_back(static_cast<char16_t>(kSurrogateFirst + ((point - 0x10000) >> 10)));
    units.push_back(static_cast<char16_t>(kLowSurrogateFirst + (point & 0x3FF)));
}

bool decodeUtf8(std::span<const std::uint8_t> bytes, std::u16string& units) {
    units.reserve(units.size() + bytes.size());
    for (std::size_t i = 0; i < bytes.size();) {
        const std::uint8_t first = bytes[i++];
        if (first < 0x80) {
            units.push_back(first);
            continue;
        }
        const Lead lead = leadOf(first);
        if (lead.following == 0 || bytes.size() - i < lead.following || bytes[i] < lead.low ||
            bytes[i] > lead.high)
            return false;
        char32_t point = first & (0x3Fu >> lead.following);
        for (std::size_t k = 0; k < lead.following; ++k, ++i) {
            if ((bytes[i] & 0xC0) != 0x80)
                return false;
            point = point << 6 | (bytes[i] & 0x3Fu);
        }
        appendCodePoint(point, units);
    }
    return true;
}

bool decodeUtf16(std::span<const std::uint8_t> bytes, std::u16string& units) {
    if (bytes.size() % sizeof(char16_t) != 0)
        return false;
    const std::size_t before = units.size();
    units.resize(before + bytes.size() / sizeof(char16_t));
    if (!bytes.empty())
        std::memcpy(units.data() + before, bytes.data(), bytes.size());
    return true;
}

void decodeLatin1(std::span<const std::uint8_t> bytes, bool windows, std::u16string& units) {
    units.reserve(units.size() + bytes.size());
    for (const std::uint8_t byte : bytes)
        units.push_back(windows && byte >= 0x80 && byte <= 0x9F ? kWindowsLatin1High[byte - 0x80u] : byte);
}

std::optional<std::size_t> utf8Size(std::u16string_view units) {
    std::size_t size = 0;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (!isSurrogate(units[i])) {
            size += units[i] < 0x80 ? 1 : units[i] < 0x800 ? 2 : 3;
        } else if (isPairAt(units, i)) {
            size += 4;
            ++i;
        } else {
            return std::nullopt;
        }
    }
    return size;
}

char* putUtf8(char32_t point, char* out) {
    constexpr std::array<std::uint8_t, 4> kMarks = {0, 0xC0, 0xE0, 0xF0};
    const unsigned following = point < 0x80 ? 0 : point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    *out++ = static_cast<char>(kMarks[following] | point >> (6 * following));
    for (unsigned left = following; left != 0; --left)
        *out++ = static_cast<char>(0x80 | (point >> (6 * (left - 1)) & 0x3F));
    return out;
}

void encodeUtf8(std::u16string_view units, char* out) {
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t point = units[i];
        if (isSurrogate(units[i])) {
            point = 0x10000 + ((point - kSurrogateFirst) << 10) + (units[i + 1] - kLowSurrogateFirst);
            ++i;
        }
        out = putUtf8(point, out);
    }
}

// The byte of a unit in one of the two Latin encodings, -1 when it has none.
int latin1ByteOf(char16_t unit, bool windows) {
    if (windows && (unit > 0xFF || (unit >= 0x80 && unit <= 0x9F))) {
        const auto* found = std::find(kWindowsLatin1High.begin(), kWindowsLatin1High.end(), unit);
        return found == kWindowsLatin1High.end()
                   ? -1
                   : 0x80 + static_cast<int>(found - kWindowsLatin1High.begin());
    }
    return unit <= 0xFF ? unit : -1;
}

} // namespace

bool decodeText(std::span<const std::uint8_t> bytes, CFStringEncoding encoding, std::u16string& units) {
    switch (encoding) {
    case kCFStringEncodingUTF8:
        return decodeUtf8(bytes, units);
    case kCFStringEncodingUnicode:
        return decodeUtf16(bytes, units);
    case kCFStringEncodingISOLatin1:
    case kCFStringEncodingWindowsLatin1:
        decodeLatin1(bytes, encoding == kCFStringEncodingWindowsLatin1, units);
        return true;
    default:
        return false;
    }
}

std::optional<std::size_t> encodedSize(std::u16string_view units, CFStringEncoding encoding) {
    const bool windows = encoding == kCFStringEncodingWindowsLatin1;
    switch (encoding) {
    case kCFStringEncodingUTF8:
        return utf8Size(units);
    case kCFStringEncodingUnicode:
        return units.size() * sizeof(char16_t);
    case kCFStringEncodingISOLatin1:
    case kCFStringEncodingWindowsLatin1:
        if (std::any_of(units.begin(), units.end(),
                        [&](char16_t unit) { return latin1ByteOf(unit, windows) < 0; }))
            return std::nullopt;
        return units.size();
    default:
        return std::nullopt;
    }
}

void encodeText(std::u16string_view units, CFStringEncoding encoding, char* bytes) {
    if (encoding == kCFStringEncodingUTF8) {
        encodeUtf8(units, bytes);
    } else if (encoding == kCFStringEncodingUnicode) {
        std::memcpy(bytes, units.data(), units.size() * sizeof(char16_t));
    } else {
        for (const char16_t unit : units)
            *bytes++ = static_cast<char>(latin1ByteOf(unit, encoding == kCFStringEncodingWindowsLatin1));
    }
}

bool isAsciiText(std::span<const std::uint8_t> bytes) {
    std::uint64_t all = 0;
    while (bytes.size() >= sizeof all) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, bytes.data(), sizeof eight);
        all |= eight;
        bytes = bytes.subspan(sizeof eight);
    }
    for (const std::uint8_t byte : bytes)
        all |= byte;
    return (all & 0x8080808080808080) == 0;
}

bool isAsciiText(std::u16string_view units) {
    return std::all_of(units.begin(), units.end(), [](char16_t unit) { return unit < 0x80; });
}

} // namespace port
