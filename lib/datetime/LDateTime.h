// Dates and times: seconds since 1970-01-01 00:00:00 UTC, shown and changed in the local time zone.
//
// Thread-safety: as a plain value. The zone and the locale belong to the process: whoever changes TZ or the
// locale does so before other threads work with dates. Without TZ the zone file is looked at now and then,
// otherwise nothing blocks.
//
// The value 0 means that no date is set, so the first second of 1970 (UTC) cannot be told from none: its text
// is empty, and SetDayTime replaces it. Years are those of the Gregorian calendar, months and days count
// from 1. Texts are ASCII and terminated; output buffers belong to the caller and hold LDateTimeTextSize
// bytes, or LPathBufferSize for a combined form. Nothing reports errors: of text the part that can be read
// counts, fields out of their ranges are carried over (the 32nd of January is the 1st of February), and what
// the system cannot express leaves a value as it was and a text empty.
//
// Forms, zeros filled up:
//   date          2015-06-01   (YYYYHMMHDD: H is a hyphen, C a colon)
//   time          09:05:00     short time 09:05
//   locale date   06/01/15     month, day and year in the order of DateFormatOrder
//
// Years that are read, from text or as numbers: 0 to 69, and anything less, mean 2000 and so many; 70 to 1899
// mean 1900 and so many; from 1900 on they mean themselves.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

constexpr unsigned long LDateTimeTextSize = 32; // bytes, terminator included: any date or any time

// The order of a date's parts.
constexpr int LDateOrderMonthDayYear = 0;
constexpr int LDateOrderDayMonthYear = 1;
constexpr int LDateOrderYearMonthDay = 2;

// A time of day: hour * 3600 + minute * 60 + second.
struct LDayTime {
    constexpr LDayTime() = default;
    explicit constexpr LDayTime(long seconds) : nSeconds(seconds) {}

    long nSeconds = 0;
};

// A set of weekdays: bit n for weekday n, Sunday being 0. Only the low byte counts.
struct LWeekDay {
    constexpr LWeekDay() = default;
    explicit constexpr LWeekDay(unsigned days) : nDays(days) {}

    unsigned nDays = 0;
};

class LDateTime {
public:
    constexpr LDateTime() = default;
    explicit constexpr LDateTime(long time) : nTime(time) {}

    // English names; January and Sunday come first.
    static const char* const szMonths[12];     // "Jan"
    static const char* const szMonthsLong[12]; // "January"
    static const char* const szWeekDays[7];    // "Sun"

    // --- Times to text: empty for 0 -----------------------------------------------------------------------

    static void GetDateTime(long t, char* date, char* time);
    static void GetDateYYYYHMMHDDTimeHHCMM(long t, char* date, char* time); // the short time
    static void GetTimeHHCMM(long t, char* text);
    static void GetTimeHHHMMHSS(long t, char* text); // 09-05-00

    // --- Times from text and fields -----------------------------------------------------------------------

    // Reads a date, up to three numbers with "-" between them, and a time, with ":". What is missing is the
    // 1st, January, the year 2000, midnight. An empty date stores 0.
    static void SetDateTime(long& t, const char* date, const char* time);

    // Reads "2015-06-01 09:05:00": the time begins at the 12th character, or is missing in a shorter text.
    static void SetDateYYYYHMMHDDTimeHHCMMCSS(long& t, const char* text);

    // Returns the time stored; -1, and nothing is stored, when there is none.
    static long SetDateTime(long& t, int year, int month, int day, int hour, int minute, int second);

    // --- Validation: numbers in their ranges, years from 1970 to 2038; what follows them does not count ----

    static bool ValidateDateYYYYHMMHDD(const char* text);             // an empty text is valid
    static bool ValidateDateTimeYYYYHMMHDDHHCMMCSS(const char* text); // null and empty are not

    // --- Calendar -----------------------------------------------------------------------------------------

    static int GetNumberOfDaysInMonth(int year, int month); // 0 for a month that is none
    static bool IsLeapYear(int year);

    // LGetLocaleDateFormatOrder, asked once a process: set the locale first.
    static int DateFormatOrder();

    // Midnight of the day on which the library was compiled.
    static long GetBuildDate();

    // True when startDate <= now < endDate (0: no end), nowTime lies in the range from startTime to before
    // endTime, across midnight when endTime is the earlier one and never when they are equal, and today is
    // one of the days.
    static bool TestScheduleDetails(LDateTime now, LDayTime nowTime, LWeekDay today, LDateTime startDate,
                                    LDateTime endDate, LDayTime startTime, LDayTime endTime, LWeekDay days);

    // --- The value to text --------------------------------------------------------------------------------

    void GetDateInLocalFormat(char* date) const; // the date; the locale's form is GetDateLocalFormat
    void GetTimeInLocalFormat(char* time) const;

    // Date, a space, time; for 0 the space alone.
    void GetDateTimeInLocalFormat(char* text) const;
    void GetDateTime(char* text) const;
    void GetDateYYYYHMMHDDTimeHHCMM(char* text) const; // with the short time

    // The locale date. Returns its length.
    int GetDateLocalFormat(char* date) const;
    void _GetTextTime(char* time) const;

    // --- The value from text and fields -------------------------------------------------------------------

    // Reads a date in the locale's order: numbers with ".", "/", ":" or "\" between them. A "-" ends the
    // date, anything else is passed over. A text that has none of these and no digit stores 0.
    void _SetTextDate(const char* text);

    // Replaces the time of day by hour, minute and second with ":" between them; what is missing is 0, other
    // characters are passed over. Of an hour that occurs twice the same one stays meant. Does nothing to 0.
    void _SetTextTime(const char* text);

    // Replaces the time of day. 0 becomes today first.
    void SetDayTime(LDayTime time);
    LDayTime GetDayTime() const; // of 0 it is 0
    LWeekDay GetWeekDay() const; // none for a time that has no local date

    // The same day and time so many months on, or the last day of a month that is too short.
    LDateTime AdjustByMonths(int months) const;

    long nTime = 0;
};

// The order that the locale's date format has, one of the three above; what the format lacks counts as
// standing first.
int LGetLocaleDateFormatOrder();

#pragma GCC visibility pop
