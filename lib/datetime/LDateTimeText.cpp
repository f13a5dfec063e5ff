#include "datetime/LDateTime.h"

#include "base/LLimits.h"
#include "datetime/internal/LDateFields.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <port/bsd.h>

namespace {

// A form writes fields at p and returns where the text ends, not terminated.
using Form = char*(char* p, const tm& fields);

char* AddTwoDigits(char* p, int nValue) {
    p[0] = static_cast<char>('0' + nValue / 10);
    p[1] = static_cast<char>('0' + nValue % 10);
    return p + 2;
}

char* AddYear(char* p, long year) {
    if (year < 0 || year > 9999)
        return p + std::snprintf(p, LDateTimeTextSize, "%.4ld", year);
    p = AddTwoDigits(p, static_cast<int>(year / 100));
    return AddTwoDigits(p, static_cast<int>(year % 100));
}

char* AddDate(char* p, const tm& fields) {
    p = AddYear(p, fields.tm_year + 1900L);
    *p++ = '-';
    p = AddTwoDigits(p, fields.tm_mon + 1);
    *p++ = '-';
    return AddTwoDigits(p, fields.tm_mday);
}

char* AddShortTime(char* p, const tm& fields) {
    p = AddTwoDigits(p, fields.tm_hour);
    *p++ = ':';
    return AddTwoDigits(p, fields.tm_min);
}

char* AddTime(char* p, const tm& fields) {
    p = AddShortTime(p, fields);
    *p++ = ':';
    return AddTwoDigits(p, fields.tm_sec);
}

char* AddTimeWithHyphens(char* p, const tm& fields) {
    char* const pEnd = AddTime(p, fields);
    p[2] = p[5] = '-';
    return pEnd;
}

char* AddLocaleDate(char* p, const tm& fields) {
    const int month = fields.tm_mon + 1;
    const auto year = static_cast<int>((fields.tm_year + 1900L) % 100);
    int parts[3] = {month, fields.tm_mday, year};
    if (LDateTime::DateFormatOrder() == LDateOrderDayMonthYear)
        std::swap(parts[0], parts[1]);
    else if (LDateTime::DateFormatOrder() == LDateOrderYearMonthDay)
        std::rotate(parts, parts + 2, parts + 3);
    for (const int nPart : parts) {
        if (nPart < 0) // a year before the first one
            *p++ = '-';
        p = AddTwoDigits(p, std::abs(nPart));
        *p++ = '/';
    }
    return p - 1;
}

// The forms of one time, empty when it is 0 or has no local date.
class FormWriter {
public:
    explicit FormWriter(long t) : bSet(t != 0 && LGetLocalFields(t, fields)) {}

    // Returns the end, terminated.
    char* Write(char* text, Form form) const {
        if (bSet)
            text = form(text, fields);
        *text = '\0';
        return text;
    }

    void WriteCombined(char* text, Form timeForm) const {
        text = Write(text, AddDate);
        *text++ = ' ';
        Write(text, timeForm);
    }

private:
    tm fields;
    bool bSet;
};

// Where an item of a date's format stands, counted from 1; 0 when it is missing.
long PositionOf(const char* format, const char* item) {
    return item == nullptr ? 0 : item - format + 1;
}

const char* Either(const char* item, const char* other) {
    return item != nullptr ? item : other;
}

} // namespace

void LDateTime::GetDateTime(long t, char* date, char* time) {
    const FormWriter writer(t);
    writer.Write(date, AddDate);
    writer.Write(time, AddTime);
}

void LDateTime::GetDateYYYYHMMHDDTimeHHCMM(long t, char* date, char* time) {
    const FormWriter writer(t);
    writer.Write(date, AddDate);
    writer.Write(time, AddShortTime);
}

void LDateTime::GetTimeHHCMM(long t, char* text) {
    FormWriter(t).Write(text, AddShortTime);
}

void LDateTime::GetTimeHHHMMHSS(long t, char* text) {
    FormWriter(t).Write(text, AddTimeWithHyphens);
}

void LDateTime::GetDateInLocalFormat(char* date) const {
    FormWriter(nTime).Write(date, AddDate);
}

void LDateTime::GetTimeInLocalFormat(char* time) const {
    FormWriter(nTime).Write(time, AddTime);
}

void LDateTime::GetDateTimeInLocalFormat(char* text) const {
    FormWriter(nTime).WriteCombined(text, AddTime);
}

void LDateTime::GetDateTime(char* text) const {
    GetDateTimeInLocalFormat(text);
}

void LDateTime::GetDateYYYYHMMHDDTimeHHCMM(char* text) const {
    FormWriter(nTime).WriteCombined(text, AddShortTime);
}

int LDateTime::GetDateLocalFormat(char* date) const {
    return static_cast<int>(FormWriter(nTime).Write(date, AddLocaleDate) - date);
}

void LDateTime::_GetTextTime(char* time) const {
    GetTimeInLocalFormat(time);
}

void LDateTime::_SetTextDate(const char* text) {
    // States 0, 2 and 4 stand before a field, 1, 3 and 5 inside it.
    constexpr int kStateDone = 6;
    int parts[3] = {-1, -1, -1};
    int nState = 0;
    for (; *text != '\0'; ++text) {
        if (*text == '-') {
            nState = kStateDone;
        } else if (std::strchr("./:\\", *text) != nullptr) {
            nState = std::min((nState & ~1) + 2, kStateDone);
        } else if (LIsDigit(*text) && nState < kStateDone) {
            int& part = parts[nState / 2];
            part = LAppendDigit(nState % 2 == 0 ? 0 : part, *text);
            nState |= 1;
        }
    }
    if (nState == 0) {
        nTime = 0;
        return;
    }
    if (DateFormatOrder() == LDateOrderYearMonthDay)
        std::rotate(parts, parts + 1, parts + 3);
    else if (DateFormatOrder() == LDateOrderDayMonthYear)
        std::swap(parts[0], parts[1]);
    const auto [month, day, year] = parts;
    SetDateTime(nTime, std::max(year, 0), month < 0 ? 1 : month, day < 0 ? 1 : day, 0, 0, 0);
}

void LDateTime::_SetTextTime(const char* text) {
    tm fields;
    if (nTime == 0 || !LGetLocalFields(nTime, fields))
        return;
    constexpr int kFieldCount = 3;
    int parts[kFieldCount] = {};
    int nField = 0;
    for (; *text != '\0' && nField < kFieldCount; ++text) {
        if (*text == ':')
            ++nField;
        else if (LIsDigit(*text))
            parts[nField] = LAppendDigit(parts[nField], *text);
    }
    fields.tm_hour = parts[0];
    fields.tm_min = parts[1];
    fields.tm_sec = parts[2];
    LStoreLocalFields(nTime, fields);
}

int LGetLocaleDateFormatOrder() {
    char szFormat[LPathBufferSize];
    strlcpy(szFormat, nl_langinfo(D_FMT), sizeof szFormat);
    if (std::strstr(szFormat, "%D") != nullptr)
        return LDateOrderMonthDayYear;
    const char* const month =
        Either(std::strstr(szFormat, "%m"), Either(strcasestr(szFormat, "%b"), std::strstr(szFormat, "%h")));
    const char* const day = Either(std::strstr(szFormat, "%d"), std::strstr(szFormat, "%e"));
    const long nMonth = PositionOf(szFormat, month);
    const long nDay = PositionOf(szFormat, day);
    const long nYear = PositionOf(szFormat, strcasestr(szFormat, "%y"));
    if (nYear < nMonth && nYear < nDay)
        return LDateOrderYearMonthDay;
    return nMonth >= nDay ? LDateOrderDayMonthYear : LDateOrderMonthDayYear;
}
