#include "corefoundation/PropertyListTexts.h"

#include "corefoundation/CFValues.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

namespace port {
namespace {

using std::chrono::days;
using std::chrono::seconds;
using std::chrono::sys_days;
using std::chrono::year;
using std::chrono::year_month_day;

// CFAbsoluteTime counts from here.
constexpr sys_days kReferenceDay = year(2001) / 1 / 1;
constexpr year kFirstYear{1};
constexpr year kLastYear{9999};

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 0xFF;

constexpr auto kBase64Values = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(kNoDigit);
    for (std::size_t i = 0; i < kBase64.size(); ++i)
        values[static_cast<unsigned char>(kBase64[i])] = static_cast<std::uint8_t>(i);
    return values;
}();

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Takes a sign off the text; true for a minus.
bool takeSign(std::string_view& text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+'))
        text.remove_prefix(1);
    return negative;
}

std::optional<std::uint64_t> wholeNumber(std::string_view digits, int base) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    if (error != std::errc() || end != digits.data() + digits.size())
        return std::nullopt;
    return value;
}

// Reals are read and written by libc in the "C" locale, whatever the program has set: the tables behind
// from_chars and to_chars of a double would be most of a small program.
class NeutralLocale {
public:
    NeutralLocale() : before_(::uselocale(neutral())) {}
    NeutralLocale(const NeutralLocale&) = delete;
    NeutralLocale& operator=(const NeutralLocale&) = delete;
    ~NeutralLocale() { ::uselocale(before_); }

private:
    static locale_t neutral() {
        static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
        return locale;
    }

    locale_t before_;
};

std::optional<double> wholeReal(const std::string& text) {
    const NeutralLocale neutral;
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    // Out of range, too, is what is so small that only zero is left of it.
    const bool isBeyond = errno == ERANGE && (value == 0 || std::isinf(value));
    if (text.empty() || isBeyond || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// The fewest digits of 15 to 17 that read as the same number again; the last form always does.
int printReal(double value, std::span<char> text) {
    const NeutralLocale neutral;
    int length = 0;
    for (const int digits : {15, 16, 17}) {
        length = std::snprintf(text.data(), text.size(), "%.*g", digits, value);
        if (std::strtod(text.data(), nullptr) == value)
            break;
    }
    return length;
}

// The digits of a date's field.
unsigned field(std::string_view text, std::size_t first, std::size_t length) {
    unsigned value = 0;
    for (const char digit : text.substr(first, length))
        value = value * 10 + static_cast<unsigned>(digit - '0');
    return value;
}

bool isDateShape(std::string_view text) {
    constexpr std::string_view kShape = "0000-00-00T00:00:00Z";
    return std::equal(text.begin(), text.end(), kShape.begin(), kShape.end(),
                      [](char c, char shape) { return shape == '0' ? c >= '0' && c <= '9' : c == shape; });
}

void appendTwoDigits(long value, char before, std::string& text) {
    text += before;
    text += static_cast<char>('0' + value / 10 % 10);
    text += static_cast<char>('0' + value % 10);
}

} // namespace

CFRef<CFNumberRef> parseInteger(std::string_view text) {
    constexpr std::uint64_t kMostNegative = std::uint64_t{1} << 63;
    text = trimmed(text);
    const bool negative = takeSign(text);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const auto magnitude = wholeNumber(hexadecimal ? text.substr(2) : text, hexadecimal ? 16 : 10);
    if (!magnitude || (negative && *magnitude > kMostNegative))
        return {};
    if (negative)
        return CFRef<CFNumberRef>(new __CFNumber(static_cast<std::int64_t>(-*magnitude)));
    return CFRef<CFNumberRef>(new __CFNumber(*magnitude));
}

CFRef<CFNumberRef> parseReal(std::string_view text) {
    text = trimmed(text);
    const bool negative = takeSign(text);
    // A second sign, hexadecimal digits and the payload that "nan(...)" may carry belong to no list.
    if (text.find_first_of("+-") == 0 || text.find_first_of("xX()") != text.npos)
        return {};
    const auto magnitude = wholeReal(std::string(text));
    if (!magnitude)
        return {};
    return CFRef<CFNumberRef>(new __CFNumber(negative ? -*magnitude : *magnitude));
}

CFRef<CFDateRef> parseDate(std::string_view text) {
    text = trimmed(text);
    if (!isDateShape(text))
        return {};
    const year_month_day day{year(static_cast<int>(field(text, 0, 4))), std::chrono::month(field(text, 5, 2)),
                             std::chrono::day(field(text, 8, 2))};
    const unsigned hour = field(text, 11, 2);
    const unsigned minute = field(text, 14, 2);
    const unsigned second = field(text, 17, 2);
    if (!day.ok() || day.year() < kFirstYear || hour > 23 || minute > 59 || second > 59)
        return {};
    const seconds ofDay{(hour * 60 + minute) * 60 + second};
    const seconds time = sys_days(day) - kReferenceDay + ofDay;
    return CFRef<CFDateRef>(new __CFDate(static_cast<double>(time.count())));
}

CFRef<CFDataRef> parseData(std::string_view text) {
    std::vector<std::uint8_t> bytes;
    std::uint32_t group = 0;
    std::size_t digits = 0;
    std::size_t padding = 0;
    bytes.reserve(text.size() / 4 * 3);
    for (const char c : text) {
        if (isBlank(c))
            continue;
        const std::uint8_t value = kBase64Values[static_cast<unsigned char>(c)];
        if (c == '=' && digits % 4 >= 2)
            ++padding;
        else if (value == kNoDigit || padding != 0)
            return {};
        group = group << 6 | (c == '=' ? 0U : value);
        if (++digits % 4 != 0)
            continue;
        for (const int shift : {16, 8, 0})
            bytes.push_back(static_cast<std::uint8_t>(group >> shift));
    }
    // The bits that padding leaves over must be zero, else something was cut off.
    for (; padding != 0 && digits % 4 == 0; --padding) {
        if (bytes.back() != 0)
            return {};
        bytes.pop_back();
    }
    return digits % 4 == 0 ? CFRef<CFDataRef>(new __CFData(std::move(bytes))) : CFRef<CFDataRef>();
}

void appendNumber(CFNumberRef number, std::string& text) {
    constexpr std::size_t kLongest = 32; // of a double: 24, of an integer: 20
    std::array<char, kLongest> digits;
    char* const first = digits.data();
    char* const last = first + digits.size();
    char* end = nullptr;
    if (number->isReal)
        end =
            std::isnan(number->real) ? std::copy_n("nan", 3, first) : first + printReal(number->real, digits);
    else if (number->isNegative)
        end = std::to_chars(first, last, static_cast<std::int64_t>(number->bits)).ptr;
    else
        end = std::to_chars(first, last, number->bits).ptr;
    text.append(first, end);
}

bool appendDate(CFDateRef date, std::string& text) {
    constexpr seconds kFirst = sys_days(kFirstYear / 1 / 1) - kReferenceDay;
    constexpr seconds kEnd = sys_days((kLastYear + std::chrono::years(1)) / 1 / 1) - kReferenceDay;
    // Written so that NaN is outside.
    if (!(date->time >= static_cast<double>(kFirst.count()) &&
          date->time < static_cast<double>(kEnd.count())))
        return false;
    const auto time = kReferenceDay + std::chrono::floor<seconds>(std::chrono::duration<double>(date->time));
    const sys_days dayPoint = std::chrono::floor<days>(time);
    const year_month_day day{dayPoint};
    const long ofDay = (time - dayPoint).count();
    const int number = static_cast<int>(day.year());
    text += static_cast<char>('0' + number / 1000);
    text += static_cast<char>('0' + number / 100 % 10);
    text += static_cast<char>('0' + number / 10 % 10);
    text += static_cast<char>('0' + number % 10);
    appendTwoDigits(static_cast<unsigned>(day.month()), '-', text);
    appendTwoDigits(static_cast<unsigned>(day.day()), '-', text);
    appendTwoDigits(ofDay / 3600, 'T', text);
    appendTwoDigits(ofDay / 60 % 60, ':', text);
    appendTwoDigits(ofDay % 60, ':', text);
    text += 'Z';
    return true;
}

void appendData(std::span<const std::uint8_t> bytes, std::string& text) {
    const std::uint8_t* from = bytes.data();
    std::size_t left = bytes.size();
    const std::size_t begin = text.size();
    text.resize(begin + (left + 2) / 3 * 4, '=');
    char* to = text.data() + begin;
    const auto write = [&to](std::uint32_t group, std::size_t characters) {
        for (std::size_t i = 0; i < characters; ++i)
            *to++ = kBase64.data()[group >> (18 - 6 * i) & 0x3F];
    };
    for (; left >= 3; left -= 3, from += 3)
        write(std::uint32_t{from[0]} << 16 | std::uint32_t{from[1]} << 8 | from[2], 4);
    if (left != 0)
        write(std::uint32_t{from[0]} << 16 | (left == 2 ? std::uint32_t{from[1]} << 8 : 0U), left + 1);
}

} // namespace port
