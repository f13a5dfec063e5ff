#include "datetime/LDateTime.h"

#include "base/LLimits.h"
#include "support/Child.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <langinfo.h>
#include <random>
#include <utility>

static std::string dateFormat = "%m/%d/%y";

// The locale of this program: the C library's own answer is not asked for.
char* nl_langinfo(nl_item) noexcept {
    return dateFormat.data();
}

namespace {

std::string Text(LDateTime time) {
    char text[LPathBufferSize];
    time.GetDateTime(text);
    return text;
}

long Time(const char* szDate, const char* szTime = "") {
    long t = -7;
    LDateTime::SetDateTime(t, szDate, szTime);
    return t;
}

// The interpreter's lines, read back in both directions.
TEST(DateTest, EveryDayAndRandomTimesInSeveralZones) {
    const std::unique_ptr<FILE, int (*)(FILE*)> lines(
        popen("python3 \"" TEST_FOLDER "/date_oracle.py\"", "r"), pclose);
    char zone[32], date[16], clock[16];
    long t = 0, other = 0;
    int nWeekDay = 0, nLines = 0;
    while (fscanf(lines.get(), "%31s %ld %ld %15s %15s %d", zone, &t, &other, date, clock, &nWeekDay) == 6) {
        setenv("TZ", zone, 1);
        const std::string sText = std::string(date) + " " + clock;
        ASSERT_EQ(sText, Text(LDateTime(t))) << zone << " " << t;
        LDateTime read;
        LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(read.nTime, sText.c_str());
        ASSERT_TRUE(read.nTime == t || read.nTime == other) << zone << " " << t << " " << read.nTime;
        ASSERT_EQ(1U << nWeekDay, LDateTime(t).GetWeekDay().nDays) << zone << " " << t;
        (read.nTime = t, read)._SetTextTime(clock);
        ASSERT_EQ(t, read.nTime) << zone << ": of an hour that occurs twice the same one stays meant";
        ++nLines;
    }
    EXPECT_EQ(6 * (25202 + 5000), nLines);
}

TEST(DateTest, TheZoneIsThatOfTheEnvironmentNow) {
    char own[] = "TZ=Asia/Tokyo", utc[] = "TZ=UTC", none[] = "NONE=";
    char* few[] = {none, none, none, none, own, nullptr};
    char** all = nullptr;
    const std::pair<std::function<void()>, const char*> changes[] = {
        {[] { setenv("TZ", "Europe/Berlin", 1); }, "11:05"},
        {[] { setenv("TZ_OTHER", "Asia/Tokyo", 1), unsetenv("TZ"), setenv("TZ", "UTC", 1); }, "09:05"},
        {[&] { putenv(own); }, "18:05"},
        {[&] { std::strcpy(own, "TZ=Asia/Dubai"); }, "13:05"},
        {[] { setenv("TZ", "UTC", 1), tzset(), unsetenv("TZ"), setenv("TZ", "Asia/Dubai", 1); }, "13:05"},
        {[] { setenv("TZ", "UTC", 1), tzset(), setenv("TZ", "Asia/Dubai", 1); }, "13:05"},
        {[&] { std::strcpy(own, "TZ=Asia/Tokyo"), all = std::exchange(environ, few); }, "18:05"},
        {[&] { few[1] = utc, few[2] = nullptr; }, "09:05"}, // what was seen is behind the end now
        {[&] { few[0] = nullptr, environ = all, setenv("TZ", "UTC", 1); }, "09:05"}};
    for (const auto& [change, szExpected] : changes) {
        change();
        EXPECT_EQ(std::string("2015-06-01 ") + szExpected + ":00", Text(LDateTime(1433149500)));
    }
}

TEST(DateTest, FormsOfATimeAndOfNone) {
    setenv("TZ", "UTC", 1);
    for (const auto& [t, szExpected] :
         {std::pair(Time("2015-06-01", "09:05:00"), "2015-06-01 09:05|09-05-00|09:05"),
          {0L, " ||"},
          {LONG_MAX, " ||"}}) {
        char both[LPathBufferSize], hyphens[LDateTimeTextSize], clock[LDateTimeTextSize];
        LDateTime(t).GetDateYYYYHMMHDDTimeHHCMM(both);
        LDateTime::GetTimeHHHMMHSS(t, hyphens);
        LDateTime::GetTimeHHCMM(t, clock);
        EXPECT_EQ(szExpected, std::string(both) + "|" + hyphens + "|" + clock);
    }
    EXPECT_LE(std::abs(LDateTime::GetBuildDate() - std::time(nullptr)), 366 * 86400);
    EXPECT_FALSE(LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(nullptr));
    EXPECT_EQ(Time("2069-07-08") + Time("1970-07-08"), Time("69-07-08") + Time("70-07-08"));
    long t = -7;
    EXPECT_EQ(-1, LDateTime::SetDateTime(t, INT_MAX, INT_MAX, INT_MAX, 0, 0, 0));
    EXPECT_EQ(-7, t);
}

TEST(DateTest, MonthsAsTheCalendarMovesThem) {
    using namespace std::chrono;
    setenv("TZ", "UTC", 1);
    std::mt19937 wild(7);
    for (int i = 0; i < 20000; ++i) {
        const sys_days day{days(static_cast<int>(wild() % 100000) - 70000)};
        const year_month_day date(day);
        const int nMonths = static_cast<int>(wild() % 1201) - 600;
        const year_month month = date.year() / date.month() + months(nMonths);
        const sys_days end = month / last;
        const sys_days moved = std::min(end, sys_days(month / 1) + (date.day() - std::chrono::day(1)));
        const long t = day.time_since_epoch() / 1s + 45296;
        ASSERT_EQ(moved.time_since_epoch() / 1s + 45296, LDateTime(t).AdjustByMonths(nMonths).nTime) << t;
    }
    EXPECT_EQ(0, LDateTime::GetNumberOfDaysInMonth(2015, 0) + LDateTime::GetNumberOfDaysInMonth(2015, 13));
}

TEST(DateTest, TheTimeOfDayAlone) {
    setenv("TZ", "Europe/Berlin", 1);
    LDateTime time(Time("2015-06-01"));
    time.SetDayTime(LDayTime(23 * 3600 + 59 * 60 + 58));
    EXPECT_EQ("2015-06-01 23:59:58", Text(time));
    EXPECT_EQ(23 * 3600 + 59 * 60 + 58, time.GetDayTime().nSeconds);
    for (const auto& [szText, szExpected] :
         {std::pair("7", "07:00:00"), {" 1x2:3y:4:5", "12:03:04"}, {"::9", "00:00:09"}, {"", "00:00:00"}}) {
        time._SetTextTime(szText);
        EXPECT_EQ(std::string("2015-06-01 ") + szExpected, Text(time)) << szText;
    }
    (time.nTime = Time("2015-03-29"), time)
        .SetDayTime(LDayTime(12 * 3600)); // on the other side of the change to daylight time
    EXPECT_EQ("2015-03-29 12:00:00", Text(time));
    LDateTime none;
    none._SetTextTime("10:00");
    EXPECT_EQ(0, none.nTime + none.GetDayTime().nSeconds);
    none.SetDayTime(LDateTime(std::time(nullptr)).GetDayTime());
    EXPECT_LE(std::abs(none.nTime - std::time(nullptr)), 2) << "of today";
}

TEST(DateTest, OrderOfRealLocales) {
    const std::vector<const char*> formats[3] = {
        {"%m/%d/%y", "%D", "%Y %D", "%A, %B %d, %Y", "%b %d %Y"},
        {"%d/%m/%Y", "%d.%m.%Y", "%d %b, %Y", "%A %d %b %Y", "%e. %h %y", "%a, %d %b %Y", "%-m/%-d/%y",
         "%-d.%-m.%Y", "%OC%Oy %b %Od %A", "%F", ""},
        {"%Y-%m-%d", "%Y年%m月%d日 %A", "%Y.%d.%m", "%Y년 %m월 %d일", "%a, %Y.eko %bren %da", "%m/%d",
         "%d/%m/%Ey"},
    };
    for (const int nOrder : {0, 1, 2})
        for (const char* szFormat : formats[nOrder]) {
            dateFormat = szFormat;
            EXPECT_EQ(nOrder, LGetLocaleDateFormatOrder()) << szFormat;
        }
    dateFormat = std::string(LPathBufferSize - 1, ' ') + "%Y-%m-%d";
    EXPECT_EQ(1, LGetLocaleDateFormatOrder()) << "beyond what is looked at";
}

// The order is asked once a process, so each row has a process of its own.
TEST(DateTest, TextsInTheOrderOfTheLocale) {
    setenv("TZ", "UTC", 1);
    const std::string sLong = "06/01/" + std::string(10000, '0') + "2015", sHuge(10000, '9');
    const std::tuple<const char*, const char*, const char*> rows[] = {
        {"%d.%m.%Y", "1.6.15", "2015-06-01 00:00:00 01/06/15"},
        {"%m/%d/%y", "6/1/2015", "2015-06-01 00:00:00 06/01/15"},
        {"%m/%d/%y", sLong.c_str(), "2015-06-01 00:00:00 06/01/15"},
        {"%m/%d/%y", "6\\1x:99/7", "1999-06-01 00:00:00 06/01/99"},
        {"%m/%d/%y", "/5", "2000-01-05 00:00:00 01/05/00"},
        {"%m/%d/%y", "-", "2000-01-01 00:00:00 01/01/00"},
        {"%m/%d/%y", "abc", "  "},
        {"%m/%d/%y", sHuge.c_str(), "178958970-07-01 00:00:00 07/01/70"},
        {"%Y-%m-%d", "2015/06/01", "2015-06-01 00:00:00 15/06/01"},
        {"%Y-%m-%d", "2015-06-01", "2015-01-01 00:00:00 15/01/01"},
    };
    for (const auto& [szFormat, szText, szExpected] : rows) {
        InChild([szFormat = szFormat, szText = szText, szExpected = szExpected] {
            dateFormat = szFormat;
            LDateTime time(-7);
            time._SetTextDate(szText);
            char local[LDateTimeTextSize];
            const auto nLength = static_cast<std::size_t>(time.GetDateLocalFormat(local));
            EXPECT_EQ(szExpected, Text(time) + " " + std::string(local, nLength)) << szText;
        });
    }
}

// Against a clock that is turned from the start, hour by hour.
TEST(DateTest, Schedules) {
    static_assert(!std::is_convertible_v<int, LDateTime> && !std::is_convertible_v<int, LDayTime>);
    const auto test = [](long nNow, long nHour, long nStart, long nEnd, unsigned today, long nUntil = 2000) {
        return LDateTime::TestScheduleDetails(LDateTime(nNow), LDayTime(nHour), LWeekDay(today),
                                              LDateTime(1000), LDateTime(nUntil), LDayTime(nStart),
                                              LDayTime(nEnd), LWeekDay(0x156));
    };
    for (long i = 0; i < 24 * 24 * 24; ++i) {
        const long nStart = i / 576, nEnd = i / 24 % 24, nNow = i % 24;
        const bool bExpected = (nNow - nStart + 24) % 24 < (nEnd - nStart + 24) % 24;
        ASSERT_EQ(bExpected, test(1500, nNow, nStart, nEnd, 2)) << nStart << " " << nEnd << " " << nNow;
    }
    EXPECT_TRUE(test(1000, 5, 0, 10, 4) && test(1999, 5, 0, 10, 16));
    EXPECT_FALSE(test(999, 5, 0, 10, 2) || test(2000, 5, 0, 10, 2) || test(1500, 5, 0, 10, 8));
    EXPECT_TRUE(test(9999, 5, 0, 10, 64, 0)) << "no end";
    EXPECT_FALSE(test(9999, 5, 0, 10, 256, 0)) << "no weekday";
}

} // namespace
