// The bodies of the plain values: data, numbers, booleans, dates and errors.
//
// Thread-safety: immutable.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "corefoundation/CFObject.h"

struct __CFData final : port::CFObject {
    explicit __CFData(std::vector<std::uint8_t> content)
        : CFObject(port::CFKind::Data), bytes(std::move(content)) {}
    bool equals(const CFObject& other) const override;

    const std::vector<std::uint8_t> bytes;
};

struct __CFBoolean final : port::CFObject {
    constexpr explicit __CFBoolean(bool state) : CFObject(port::CFKind::Boolean), value(state) {}

    const bool value;
};

// A real number, or a whole one from -2^63 to 2^64 - 1 as its lowest 64 bits and its sign.
struct __CFNumber final : port::CFObject {
    explicit __CFNumber(double number) : CFObject(port::CFKind::Number), isReal(true), real(number) {}
    explicit __CFNumber(std::int64_t number)
        : CFObject(port::CFKind::Number), isNegative(number < 0), bits(static_cast<std::uint64_t>(number)) {}
    explicit __CFNumber(std::uint64_t number) : CFObject(port::CFKind::Number), bits(number) {}
    bool equals(const CFObject& other) const override;

    const bool isReal = false;
    const bool isNegative = false;
    const std::uint64_t bits = 0;
    const double real = 0;
};

struct __CFDate final : port::CFObject {
    explicit __CFDate(CFAbsoluteTime seconds) : CFObject(port::CFKind::Date), time(seconds) {}
    bool equals(const CFObject& other) const override;

    const CFAbsoluteTime time;
};

struct __CFError final : port::CFObject {
    __CFError(CFIndex number, std::string_view text)
        : CFObject(port::CFKind::Error), code(number), description(text) {}

    const CFIndex code;
    const std::string description;
};
