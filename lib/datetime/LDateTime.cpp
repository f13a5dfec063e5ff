#include "datetime/LDateTime.h"

#include "datetime/internal/LDateFields.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace {

constexpr int kSecondsPerHour = 3600;
constexpr int kSecondsPerMinute = 60;
constexpr int kMonthsPerYear = 12;
constexpr int kFirstValidYear = 1970;
constexpr int kLastValidYear = 2038;
constexpr std::size_t kTimePosition = 11; // of the time in a combined form

int LimitToInt(long nValue) {
    return static_cast<int>(std::clamp<long>(nValue, INT_MIN, INT_MAX));
}

tm FieldsFrom(const int (&date)[3], const int (&time)[3]) {
    tm fields = LStartFields();
    fields.tm_year = LYearField(date[0]);
    fields.tm_mon = LimitToInt(date[1] - 1L);
    fields.tm_mday = date[2];
    fields.tm_hour = time[0];
    fields.tm_min = time[1];
    fields.tm_sec = time[2];
    return fields;
}

bool IsValidDate(int year, int month, int day) {
    return year >= kFirstValidYear && year <= kLastValidYear && day >= 1 &&
           day <= LDateTime::GetNumberOfDaysInMonth(year, month);
}

} // namespace

const char* const LDateTime::szMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char* const LDateTime::szMonthsLong[12] = {"January",   "February", "March",    "April",
                                                 "May",       "June",     "July",     "August",
                                                 "September", "October",  "November", "December"};
const char* const LDateTime::szWeekDays[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

void LDateTime::SetDateTime(long& t, const char* date, const char* time) {
    if (*date == '\0') {
        t = 0;
        return;
    }
    int dateNumbers[3] = {0, 1, 1};
    int timeNumbers[3] = {};
    LReadNumbers(date, "--", dateNumbers);
    LReadNumbers(time, "::", timeNumbers);
    tm fields = FieldsFrom(dateNumbers, timeNumbers);
    LStoreLocalFields(t, fields);
}

void LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(long& t, const char* text) {
    SetDateTime(t, text, strnlen(text, kTimePosition) == kTimePosition ? text + kTimePosition : "");
}

long LDateTime::SetDateTime(long& t, int year, int month, int day, int hour, int minute, int second) {
    tm fields = FieldsFrom({year, month, day}, {hour, minute, second});
    return LStoreLocalFields(t, fields) ? t : -1;
}

bool LDateTime::ValidateDateYYYYHMMHDD(const char* text) {
    int date[3] = {};
    LReadNumbers(text, "--", date);
    return *text == '\0' || IsValidDate(date[0], date[1], date[2]);
}

bool LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(const char* text) {
    if (text == nullptr)
        return false;
    int numbers[6] = {0, 0, 0, -1, -1, -1};
    LReadNumbers(text, "-- ::", numbers);
    return IsValidDate(numbers[0], numbers[1], numbers[2]) && static_cast<unsigned>(numbers[3]) < 24 &&
           static_cast<unsigned>(numbers[4]) < 60 && static_cast<unsigned>(numbers[5]) < 60;
}

int LDateTime::GetNumberOfDaysInMonth(int year, int month) {
    constexpr int days[kMonthsPerYear] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > kMonthsPerYear)
        return 0;
    return days[month - 1] + (month == 2 && IsLeapYear(year) ? 1 : 0);
}

bool LDateTime::IsLeapYear(int year) {
    return year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
}

int LDateTime::DateFormatOrder() {
    static const int iOrder = LGetLocaleDateFormatOrder();
    return iOrder;
}

long LDateTime::GetBuildDate() {
    constexpr char kDate[] = __DATE__; // "Jun  1 2015"
    int month = 0;
    for (int i = 0; i < kMonthsPerYear; ++i)
        if (std::memcmp(kDate, szMonths[i], 3) == 0)
            month = i + 1;
    int dayAndYear[2] = {};
    LReadNumbers(kDate + 3, " ", dayAndYear);
    long t = 0;
    SetDateTime(t, dayAndYear[1], month, dayAndYear[0], 0, 0, 0);
    return t;
}

bool LDateTime::TestScheduleDetails(LDateTime now, LDayTime nowTime, LWeekDay today, LDateTime startDate,
                                    LDateTime endDate, LDayTime startTime, LDayTime endTime, LWeekDay days) {
    if (startDate.nTime > now.nTime || (endDate.nTime != 0 && now.nTime >= endDate.nTime))
        return false;
    const bool bStarted = nowTime.nSeconds >= startTime.nSeconds;
    const bool bBeforeEnd = nowTime.nSeconds < endTime.nSeconds;
    const bool bAcrossMidnight = startTime.nSeconds > endTime.nSeconds;
    if (bAcrossMidnight ? !bStarted && !bBeforeEnd : !bStarted || !bBeforeEnd)
        return false;
    return (days.nDays & today.nDays & 0xFF) != 0;
}

void LDateTime::SetDayTime(LDayTime time) {
    if (nTime == 0)
        nTime = std::time(nullptr);
    tm fields;
    if (!LGetLocalFields(nTime, fields))
        return;
    fields.tm_hour = LimitToInt(time.nSeconds / kSecondsPerHour);
    fields.tm_min = static_cast<int>(time.nSeconds / kSecondsPerMinute % 60);
    fields.tm_sec = static_cast<int>(time.nSeconds % kSecondsPerMinute);
    fields.tm_isdst = -1;
    LStoreLocalFields(nTime, fields);
}

LDayTime LDateTime::GetDayTime() const {
    tm fields;
    if (nTime == 0 || !LGetLocalFields(nTime, fields))
        return {};
    return LDayTime(fields.tm_hour * kSecondsPerHour + fields.tm_min * kSecondsPerMinute + fields.tm_sec);
}

LWeekDay LDateTime::GetWeekDay() const {
    tm fields;
    if (!LGetLocalFields(nTime, fields))
        return {};
    return LWeekDay(1U << fields.tm_wday);
}

LDateTime LDateTime::AdjustByMonths(int months) const {
    tm fields;
    if (!LGetLocalFields(nTime, fields))
        return *this;
    long year = fields.tm_year + 1900L;
    long month = fields.tm_mon + 1L + months;
    if (month > kMonthsPerYear) {
        year += (month - 1) / kMonthsPerYear;
        month = (month - 1) % kMonthsPerYear + 1;
    } else if (month < 1) {
        year += month / kMonthsPerYear - 1;
        month = kMonthsPerYear + month % kMonthsPerYear;
    }
    // The year is a computed one: no rule for years that are read applies to it.
    fields.tm_year = LimitToInt(year - 1900);
    fields.tm_mon = static_cast<int>(month - 1);
    fields.tm_mday =
        std::min(fields.tm_mday, GetNumberOfDaysInMonth(LimitToInt(year), static_cast<int>(month)));
    fields.tm_isdst = -1;
    LDateTime moved = *this;
    LStoreLocalFields(moved.nTime, fields);
    return moved;
}
