// The text forms of numbers, dates and data in an XML property list. Readers take the whole of the text, with
// blanks around it, or nothing.
//
// Thread-safety: pure functions.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "corefoundation/CFObject.h"

namespace port {

// An optional sign and decimal digits, or hexadecimal ones after "0x"; from -2^63 to 2^64 - 1. Null
// otherwise.
CFRef<CFNumberRef> parseInteger(std::string_view text);

// Decimal, with or without fraction and exponent, or "inf", "infinity", "nan"; null also beyond the range.
CFRef<CFNumberRef> parseReal(std::string_view text);

// "2026-11-22T21:30:00Z": a real day of the years 1 to 9999 and a time of it. Null otherwise.
CFRef<CFDateRef> parseDate(std::string_view text);

// Base64 in whole groups, with blanks anywhere. Null otherwise.
CFRef<CFDataRef> parseData(std::string_view text);

void appendNumber(CFNumberRef number, std::string& text);

// False when the date lies outside the years 1 to 9999. Fractions of a second are dropped.
bool appendDate(CFDateRef date, std::string& text);

// One line of base64.
void appendData(std::span<const std::uint8_t> bytes, std::string& text);

} // namespace port
