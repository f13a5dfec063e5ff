// The formatter on the library's own formats, beside what a user would write by hand (the floor), snprintf,
// and fmt with a format read at run time. All of them write into a bounded buffer.
#include "Driver.h"

#include "strings/LStringFormat.h"

#include <charconv>
#include <cstdio>
#include <cstring>

#ifdef BENCH_HAVE_FMT
#include <fmt/format.h>
#endif

namespace {

struct Inputs {
    const char* name = "Application";
    const char* second = "Contents/";
    const char* path = "/Applications/Zubeq Free.app";
    unsigned number = 20714;
    int major = 2;
    int minor = 14;
    int hour = 7;
    int minute = 5;
    int moment = 59;
    double ratio = 0.7284;
};

// The compiler must not know the values.
const Inputs& hidden() {
    static Inputs inputs;
    Inputs* p = &inputs;
    asm volatile("" : "+r"(p));
    return *p;
}

char buffer[LPathBufferSize];

char* store(char* p, const char* text) {
    const std::size_t length = std::strlen(text);
    std::memcpy(p, text, length);
    return p + length;
}

template <typename T>
char* store(char* p, T value) {
    return std::to_chars(p, p + 12, value).ptr;
}

char* storePair(char* p, int value) {
    p[0] = static_cast<char>('0' + value / 10);
    p[1] = static_cast<char>('0' + value % 10);
    return p + 2;
}

template <std::chars_format kForm, int kDigits>
void number(const Inputs& in) {
    *std::to_chars(buffer, buffer + sizeof(buffer), in.ratio, kForm, kDigits).ptr = 0;
}

template <typename Work>
bench::Row row(const char* name, Work work, bench::Whose whose = bench::Whose::Others) {
    return {name,
            [work] {
                return bench::nanosecondsPerCall([&] {
                    work(hidden());
                    bench::keep(buffer);
                });
            },
            whose};
}

template <typename Hand, typename Print, typename Ours, typename String, typename Fmt>
bench::Case compare(const char* format, Hand hand, Print print, Ours ours, String string, Fmt fmt) {
    bench::Case subject{std::string("format/") + format, "ns", bench::Better::Lower, {}};
    subject.rows.push_back(row("floor: by hand", hand));
    subject.rows.push_back(row("snprintf", print));
#ifdef BENCH_HAVE_FMT
    subject.rows.push_back(row("fmt at run time", fmt));
#else
    static_cast<void>(fmt);
#endif
    subject.rows.push_back(row("tplsnprintf", ours, bench::Whose::Ours));
    subject.rows.push_back(row("growable string", string, bench::Whose::Ours));
    return subject;
}

LStringLongTemplate<char>& growable() {
    static LStringLongTemplate<char> text;
    return text;
}

// One case: the same arguments for printf's grammar and for fmt's.
#ifdef BENCH_HAVE_FMT
#define FMT_ROW(format, ...)                                                                                 \
    [](const Inputs& in) {                                                                                   \
        static_cast<void>(in);                                                                               \
        *fmt::format_to_n(buffer, sizeof(buffer) - 1, fmt::runtime(format), __VA_ARGS__).out = 0;            \
    }
#else
#define FMT_ROW(format, ...) [](const Inputs&) {}
#endif
#define CASE(format, fmtFormat, hand, ...)                                                                   \
    compare(                                                                                                 \
        format, hand, [](const Inputs& in) { std::snprintf(buffer, sizeof(buffer), format, __VA_ARGS__); },  \
        [](const Inputs& in) { tplsnprintf(buffer, sizeof(buffer), format, __VA_ARGS__); },                  \
        [](const Inputs& in) { growable().sprintf(format, __VA_ARGS__); }, FMT_ROW(fmtFormat, __VA_ARGS__))

const bench::Register registered([](std::vector<bench::Case>& cases) {
    cases.push_back(CASE(
        "%s_%u", "{}_{}",
        [](const Inputs& in) {
            char* p = store(buffer, in.name);
            *p++ = '_';
            *store(p, in.number) = 0;
        },
        in.name, in.number));
    cases.push_back(CASE(
        "%d.%d", "{}.{}",
        [](const Inputs& in) {
            char* p = store(buffer, in.major);
            *p++ = '.';
            *store(p, in.minor) = 0;
        },
        in.major, in.minor));
    cases.push_back(CASE(
        "%s%s%s", "{}{}{}",
        [](const Inputs& in) { *store(store(store(buffer, in.path), in.second), in.name) = 0; }, in.path,
        in.second, in.name));
    cases.push_back(CASE(
        "%.2d:%.2d:%.2d", "{:02}:{:02}:{:02}",
        [](const Inputs& in) {
            char* p = storePair(buffer, in.hour);
            *p++ = ':';
            p = storePair(p, in.minute);
            *p++ = ':';
            *storePair(p, in.moment) = 0;
        },
        in.hour, in.minute, in.moment));
    cases.push_back(CASE(
        "tool -r \"%s\"", "tool -r \"{}\"",
        [](const Inputs& in) {
            char* p = store(store(buffer, "tool -r \""), in.path);
            *p++ = '"';
            *p = 0;
        },
        in.path));
    cases.push_back(CASE("%f", "{:f}", (number<std::chars_format::fixed, 6>), in.ratio));
    cases.push_back(CASE("%.3f", "{:.3f}", (number<std::chars_format::fixed, 3>), in.ratio));
    cases.push_back(CASE("%g", "{:g}", (number<std::chars_format::general, 6>), in.ratio));
    cases.push_back(CASE("%e", "{:e}", (number<std::chars_format::scientific, 6>), in.ratio));
});

} // namespace
