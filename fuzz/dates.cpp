// Texts of dates and times, validation and the forms of whatever was read: what scanf and mktime say, and no
// write outside a buffer. Numbers that scanf cannot hold are read all the same, but not compared.
#include "base/LLimits.h"
#include "datetime/LDateTime.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t longestCompared = 9; // digits

void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

bool hasLongNumber(const std::string& text) {
    std::size_t digits = 0;
    for (const char c : text) {
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        if (digits > longestCompared)
            return true;
    }
    return false;
}

bool isValidDate(int year, int month, int day) {
    using namespace std::chrono;
    return year >= 1970 && year <= 2038 && month >= 1 && month <= 12 && day >= 1 && day <= 31 &&
           (std::chrono::year(year) / month / day).ok();
}

bool isValidDate(const char* text) {
    int year = 0, month = 0, day = 0;
    std::sscanf(text, "%d-%d-%d", &year, &month, &day);
    return *text == '\0' || isValidDate(year, month, day);
}

bool isValidDateTime(const char* text) {
    int year = 0, month = 0, day = 0, hour = -1, minute = -1, second = -1;
    std::sscanf(text, "%d-%d-%d %d:%d:%d", &year, &month, &day, &hour, &minute, &second);
    return isValidDate(year, month, day) && hour >= 0 && hour < 24 && minute >= 0 && minute < 60 &&
           second >= 0 && second < 60;
}

long readTime(const char* date, const char* time, long old) {
    tm fields{};
    int year = 0, month = 1;
    fields.tm_mday = 1;
    fields.tm_isdst = -1;
    if (*date == '\0')
        return 0;
    std::sscanf(date, "%d-%d-%d", &year, &month, &fields.tm_mday);
    std::sscanf(time, "%d:%d:%d", &fields.tm_hour, &fields.tm_min, &fields.tm_sec);
    fields.tm_year = year < 70 ? year + 100 : year < 1900 ? year : year - 1900;
    fields.tm_mon = month - 1;
    const long result = std::mktime(&fields);
    return result == -1 ? old : result;
}

// What the operation leaves in a buffer that lies on the heap by itself for the sanitizer's sake.
template <typename Operation>
std::string result(std::size_t size, Operation operation) {
    const std::unique_ptr<char[]> out(new char[size]);
    operation(out.get());
    require(std::memchr(out.get(), 0, size) != nullptr, "terminated");
    return out.get();
}

void compareForms(LDateTime time) {
    const std::string both = result(LPathBufferSize, [=](char* out) { time.GetDateTime(out); });
    const std::string date = result(LDateTimeTextSize, [=](char* out) { time.GetDateInLocalFormat(out); });
    const std::string clock = result(LDateTimeTextSize, [=](char* out) { time.GetTimeInLocalFormat(out); });
    require(both == date + " " + clock, "the combined form is made of the others");
    result(LDateTimeTextSize, [=](char* out) { time.GetDateLocalFormat(out); });
    const std::time_t seconds = time.nTime;
    tm fields;
    char expected[LPathBufferSize] = " ";
    if (seconds != 0 && localtime_r(&seconds, &fields) != nullptr)
        std::snprintf(expected, sizeof expected, "%.4ld-%.2d-%.2d %.2d:%.2d:%.2d", fields.tm_year + 1900L,
                      fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
    require(both == expected, "the form");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    setenv("TZ", "Australia/Lord_Howe", 1);
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(input.find('\0'), size);
    const std::string date = input.substr(0, end);
    const std::string time = end == size ? "" : input.c_str() + end + 1;
    LDateTime value(-7);
    LDateTime::SetDateTime(value.nTime, date.c_str(), time.c_str());
    const bool valid = LDateTime::ValidateDateYYYYHMMHDD(date.c_str());
    const bool validBoth = LDateTime::ValidateDateTimeYYYYHMMHDDHHCMMCSS(date.c_str());
    if (!hasLongNumber(date) && !hasLongNumber(time)) {
        require(valid == isValidDate(date.c_str()), "validation of a date");
        require(validBoth == isValidDateTime(date.c_str()), "validation of a date and time");
        const long expected = readTime(date.c_str(), time.c_str(), -7);
        require(value.nTime == expected || std::labs(value.nTime - expected) == 1800, "what is read");
    }
    compareForms(value);
    LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(value.nTime, date.c_str());
    value._SetTextTime(time.c_str());
    compareForms(value);
    compareForms(value.AdjustByMonths(static_cast<int>(value.nTime)));
    value._SetTextDate(date.c_str());
    compareForms(value);
    value.SetDayTime(LDayTime(value.nTime));
    compareForms(value);
    return 0;
}
