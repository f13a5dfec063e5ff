#include "datetime/internal/LDateFields.h"

#include <algorithm>
#include <climits>
#include <port/time.h>

namespace {

constexpr int kBaseYear = 1900; // of the calendar structure
constexpr int kLastYearOfCentury = 69;

// To the number's first digit, or what stands in its place.
const char* SkipToDigits(const char* text, bool& negative) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r'))
        ++text;
    negative = *text == '-';
    return negative || *text == '+' ? text + 1 : text;
}

// Behind the number, or null when there is none.
const char* ReadNumber(const char* text, int& number) {
    bool bNegative = false;
    if (!LIsDigit(*text))
        text = SkipToDigits(text, bNegative);
    if (!LIsDigit(*text))
        return nullptr;
    int nRead = *text++ - '0';
    for (; LIsDigit(*text); ++text)
        nRead = LAppendDigit(nRead, *text);
    number = bNegative ? -nRead : nRead;
    return text;
}

} // namespace

bool LGetLocalFields(long t, tm& fields) {
    const std::time_t nTime = t;
    return port_localtime_r(&nTime, &fields) != nullptr;
}

bool LStoreLocalFields(long& t, tm& fields) {
    const std::time_t nTime = port_mktime(&fields);
    if (nTime == -1)
        return false;
    t = nTime;
    return true;
}

tm LStartFields() {
    tm fields{};
    fields.tm_year = LYearField(0);
    fields.tm_mday = 1;
    fields.tm_isdst = -1;
    return fields;
}

int LYearField(int year) {
    if (year <= kLastYearOfCentury)
        return year + 2000 - kBaseYear;
    return year < kBaseYear ? year : year - kBaseYear;
}

int LAppendDigit(int number, char digit) {
    const long nResult = number * 10L + (digit - '0');
    return static_cast<int>(std::min<long>(nResult, INT_MAX));
}

void LReadNumbers(const char* text, const char* separators, int* numbers) {
    text = ReadNumber(text, *numbers);
    for (; text != nullptr && *separators != '\0'; ++separators) {
        if (*separators != ' ' && *text++ != *separators)
            return;
        text = ReadNumber(text, *++numbers);
    }
}
