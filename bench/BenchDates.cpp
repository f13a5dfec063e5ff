// Dates to text and back: the floor is the C library's conversion and digits by hand, the peers are the calls
// that a user would reach for. Times of one day, as they come from a clock or a folder, and times all over the
// years; in a zone that TZ names, and in the machine's own. And the process table beside `ps`.
#include "Driver.h"

#include "datetime/LDateTime.h"
#include "platform/LProcessUtilities.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iomanip>
#include <sstream>

namespace {

struct Setting {
    const char* name;
    const char* zone; // null: the machine's
    bool allOver;
};

constexpr Setting settings[] = {{"", "Europe/Berlin", false},
                                {", machine's zone", nullptr, false},
                                {", all over", "Europe/Berlin", true}};

constexpr std::size_t timeCount = 1024;
constexpr const char* textFormat = "%Y-%m-%d %H:%M:%S";

// Times, and the same as text.
struct Inputs {
    explicit Inputs(const Setting& setting) {
        if (setting.zone != nullptr)
            setenv("TZ", setting.zone, 1);
        else
            unsetenv("TZ");
        for (std::size_t i = 0; i < timeCount; ++i) {
            times[i] = 1433149500 + static_cast<long>(i * 7919) % 80000;
            if (setting.allOver)
                times[i] = static_cast<long>(i * 2654435761U % 0x7FFFFFFF);
            char* const text = texts[i];
            LDateTime(times[i]).GetDateTime(text);
        }
    }

    long times[timeCount];
    char texts[timeCount][32];
};

template <typename Work>
bench::Row row(const char* name, const Setting& setting, Work work,
               bench::Whose whose = bench::Whose::Others) {
    return {name,
            [=] {
                const Inputs inputs(setting);
                std::size_t i = 0;
                return bench::nanosecondsPerCall([&] {
                    i = (i + 1) % timeCount;
                    bench::keep(work(inputs.times[i], inputs.texts[i]));
                });
            },
            whose};
}

char* storePair(char* p, int value, char behind) {
    p[0] = static_cast<char>('0' + value / 10);
    p[1] = static_cast<char>('0' + value % 10);
    p[2] = behind;
    return p + 3;
}

int pairAt(const char* p) {
    return (p[0] - '0') * 10 + (p[1] - '0');
}

char buffer[64];

const char* handWrite(std::time_t time, const char*) {
    tm fields;
    localtime_r(&time, &fields);
    char* p = storePair(buffer, (fields.tm_year + 1900) / 100, '\0') - 1;
    p = storePair(p, fields.tm_year % 100, '-');
    p = storePair(p, fields.tm_mon + 1, '-');
    p = storePair(p, fields.tm_mday, ' ');
    p = storePair(p, fields.tm_hour, ':');
    p = storePair(p, fields.tm_min, ':');
    storePair(p, fields.tm_sec, '\0');
    return buffer;
}

const char* libraryWrite(std::time_t time, const char*) {
    tm fields;
    localtime_r(&time, &fields);
    std::strftime(buffer, sizeof buffer, textFormat, &fields);
    return buffer;
}

std::string streamWrite(std::time_t time, const char*) {
    tm fields;
    localtime_r(&time, &fields);
    std::ostringstream out;
    out << std::put_time(&fields, textFormat);
    return out.str();
}

long handRead(std::time_t, const char* text) {
    tm fields{};
    fields.tm_year = pairAt(text) * 100 + pairAt(text + 2) - 1900;
    fields.tm_mon = pairAt(text + 5) - 1;
    fields.tm_mday = pairAt(text + 8);
    fields.tm_hour = pairAt(text + 11);
    fields.tm_min = pairAt(text + 14);
    fields.tm_sec = pairAt(text + 17);
    fields.tm_isdst = -1;
    return std::mktime(&fields);
}

long libraryRead(std::time_t, const char* text) {
    tm fields{};
    strptime(text, textFormat, &fields);
    fields.tm_isdst = -1;
    return std::mktime(&fields);
}

long streamRead(std::time_t, const char* text) {
    tm fields{};
    std::istringstream in(text);
    in >> std::get_time(&fields, textFormat);
    fields.tm_isdst = -1;
    return std::mktime(&fields);
}

double microseconds(bool works, bench::Clock::time_point start) {
    const double spent = bench::nanosecondsSince(start) / 1000;
    bench::need(works, "no process was told");
    return spent;
}

double readOurTable() {
    const auto start = bench::Clock::now();
    kinfo_proc* list = nullptr;
    const unsigned long count = LGetBSDProcessList(&list);
    std::free(list);
    return microseconds(count > 0, start);
}

double readTableOfPs() {
    const auto start = bench::Clock::now();
    FILE* const ps = popen("exec ps -eo s,pid,euid,exe 2>/dev/null", "r");
    char line[4096];
    int lines = 0;
    while (ps != nullptr && std::fgets(line, sizeof line, ps) != nullptr)
        ++lines;
    return microseconds(ps != nullptr && pclose(ps) == 0 && lines > 1, start);
}

const bench::Register registered([](std::vector<bench::Case>& cases) {
    for (const Setting& setting : settings) {
        cases.push_back({std::string("dates/to text") + setting.name,
                         "ns",
                         bench::Better::Lower,
                         {row("floor: localtime_r, digits by hand", setting, handWrite),
                          row("localtime_r, strftime", setting, libraryWrite),
                          row("localtime_r, std::put_time", setting, streamWrite),
                          row(
                              "GetDateTime", setting,
                              [](long time, const char*) {
                                  LDateTime(time).GetDateTime(buffer);
                                  return buffer;
                              },
                              bench::Whose::Ours)}});
        cases.push_back({std::string("dates/from text") + setting.name,
                         "ns",
                         bench::Better::Lower,
                         {row("floor: digits by hand, mktime", setting, handRead),
                          row("strptime, mktime", setting, libraryRead),
                          row("std::get_time, mktime", setting, streamRead),
                          row(
                              "SetDateYYYYHMMHDDTimeHHCMMCSS", setting,
                              [](long, const char* text) {
                                  long read = 0;
                                  LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(read, text);
                                  return read;
                              },
                              bench::Whose::Ours)}});
    }
    cases.push_back({"dates/process table",
                     "us",
                     bench::Better::Lower,
                     {{"ps", readTableOfPs}, {"LGetBSDProcessList", readOurTable, bench::Whose::Ours}}});
});

} // namespace
