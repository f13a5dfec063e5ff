// Conversion between UTF-16 and the encodings that strings come from and go to.
//
// Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <CoreFoundation/CoreFoundation.h>

namespace port {

// Appends the units of the bytes. False when they are ill-formed in the encoding or the encoding is unknown;
// what stands in `units` is then of no use.
bool decodeText(std::span<const std::uint8_t> bytes, CFStringEncoding encoding, std::u16string& units);

// The size in bytes of the encoded text without a terminator; none when the encoding cannot hold it.
std::optional<std::size_t> encodedSize(std::u16string_view units, CFStringEncoding encoding);

// Writes as many bytes as `encodedSize` told.
void encodeText(std::u16string_view units, CFStringEncoding encoding, char* bytes);

// Bytes of a unit, and so of a terminator.
constexpr std::size_t unitSize(CFStringEncoding encoding) {
    return encoding == kCFStringEncodingUnicode ? sizeof(char16_t) : 1;
}

bool isAsciiText(std::span<const std::uint8_t> bytes);
bool isAsciiText(std::u16string_view units);

} // namespace port
