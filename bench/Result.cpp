#include "Result.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/utsname.h>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

// What stands behind `name` in a list of lines "name : value".
std::string valueOf(const char* file, std::string_view name) {
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);)
        if (line.starts_with(name))
            if (const auto colon = line.find(": "); colon != std::string::npos)
                return line.substr(colon + 2);
    return "unknown";
}

std::string vectors() {
    const std::string flags = valueOf("/proc/cpuinfo", "flags") + ' ';
    std::string found;
    for (const char* flag : {"avx2", "avx512vbmi2"})
        if (flags.find(std::string(" ") + flag + ' ') != std::string::npos)
            found += std::string(", ") + flag;
    return found;
}

std::size_t processes() {
    std::size_t count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", error))
        count += std::isdigit(static_cast<unsigned char>(entry.path().filename().native().front())) != 0;
    return count;
}

std::size_t variables() {
    std::size_t count = 0;
    while (environ[count] != nullptr)
        ++count;
    return count;
}

[[gnu::format(printf, 1, 2)]] std::string printed(const char* format, ...) {
    char text[400];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

// Four digits, and "29.6 k" rather than "2.96e+04".
std::string figure(double value) {
    if (value >= 1e6)
        return printed("%.4g M", value * 1e-6);
    return value >= 1e4 ? printed("%.4g k", value * 1e-3) : printed("%.4g", value);
}

std::string ratio(const RowResult& row) {
    return row.ratios.empty() ? "" : printed("%.2fx", median(row.ratios));
}

const char* direction(Better better) {
    return better == Better::Lower ? "lower is better" : "higher is better";
}

// "1.83x 54.2 (52.1 to 60.3)", the floor without a ratio, what is known besides behind it.
std::string cell(const RowResult& row, bool first) {
    if (!row.missing.empty())
        return row.missing;
    std::string text = first ? "" : ratio(row);
    if (row.whose == Whose::Ours && !text.empty())
        text = "**" + text + "**";
    text += (text.empty() ? "" : " ") + figure(median(row.figures));
    if (row.figures.size() > 1)
        text += " (" + figure(row.least()) + " to " + figure(row.greatest()) + ")";
    if (!row.percentiles99.empty())
        text += ", 99 %: " + figure(median(row.percentiles99));
    if (!row.cpus.empty())
        text += ", CPU " + figure(median(row.cpus)) + " us";
    return text;
}

bool sameRows(const CaseResult& a, const CaseResult& b) {
    return std::equal(a.rows.begin(), a.rows.end(), b.rows.begin(), b.rows.end(),
                      [](const RowResult& one, const RowResult& other) { return one.name == other.name; });
}

} // namespace

double median(std::vector<double> values) {
    if (values.empty())
        return kUnknown;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double RowResult::least() const {
    return figures.empty() ? kUnknown : *std::min_element(figures.begin(), figures.end());
}

double RowResult::greatest() const {
    return figures.empty() ? kUnknown : *std::max_element(figures.begin(), figures.end());
}

bool isPeer(const RowResult& row) {
    return row.whose == Whose::Others && !row.name.starts_with("floor:") && !row.name.starts_with("kernel:");
}

std::string machine() {
    utsname system{};
    uname(&system);
    double load = 0;
    if (getloadavg(&load, 1) != 1)
        load = kUnknown;
    return valueOf("/proc/cpuinfo", "model name") + vectors() + "; " +
           printed("%u processors, %s %s, compiler %s; %zu processes, %zu environment variables, load %.2f",
                   std::thread::hardware_concurrency(), system.sysname, system.release, __VERSION__,
                   processes(), variables(), load);
}

void printText(const CaseResult& result) {
    std::printf("\n%s (%s, %s, %zu times)\n  %-34s %9s %9s %9s %8s\n", result.name.c_str(),
                result.unit.c_str(), direction(result.better), result.rows[0].figures.size(), "", "least",
                "median", "greatest", "ratio");
    for (const RowResult& row : result.rows) {
        std::printf("  %-34s ", row.name.c_str());
        if (row.figures.empty()) {
            std::printf("%s\n", row.missing.c_str());
            continue;
        }
        std::printf("%9s %9s %9s %8s", figure(row.least()).c_str(), figure(median(row.figures)).c_str(),
                    figure(row.greatest()).c_str(), ratio(row).c_str());
        if (!row.percentiles99.empty())
            std::printf("   99 %%: %s", figure(median(row.percentiles99)).c_str());
        if (!row.cpus.empty())
            std::printf("   CPU %s us", figure(median(row.cpus)).c_str());
        std::printf("\n");
    }
    std::fflush(stdout);
}

void printGroup(const std::vector<CaseResult>& group) {
    const std::string name(group.front().group());
    std::printf("<!-- begin %s -->\n\n", name.c_str());
    for (std::size_t i = 0; i < group.size(); ++i) {
        const CaseResult& result = group[i];
        if (i == 0 || !sameRows(result, group[i - 1])) {
            std::printf(i == 0 ? "| case |" : "\n| case |");
            for (const RowResult& row : result.rows)
                std::printf(row.whose == Whose::Ours ? " **%s** |" : " %s |", row.name.c_str());
            std::printf("\n|---|");
            for (std::size_t rows = result.rows.size(); rows > 0; --rows)
                std::printf("---|");
            std::printf("\n");
        }
        std::printf("| %s (%s) |", std::string(result.title()).c_str(), result.unit.c_str());
        for (const RowResult& row : result.rows)
            std::printf(" %s |", cell(row, &row == &result.rows.front()).c_str());
        std::printf("\n");
    }
    std::printf("\n<!-- end %s -->\n", name.c_str());
}

std::vector<std::string> behind(const std::vector<CaseResult>& results) {
    std::vector<std::string> lines;
    for (const CaseResult& result : results) {
        const auto isAhead = [&](const RowResult& a, const RowResult& b) {
            return result.better == Better::Lower ? median(a.figures) < median(b.figures)
                                                  : median(a.figures) > median(b.figures);
        };
        const RowResult* best = nullptr;
        for (const RowResult& row : result.rows)
            if (isPeer(row) && !row.figures.empty() && (best == nullptr || isAhead(row, *best)))
                best = &row;
        for (const RowResult& row : result.rows)
            if (row.whose == Whose::Ours && !row.figures.empty() && best != nullptr && isAhead(*best, row))
                lines.push_back(result.name + ": " + row.name + ' ' + figure(median(row.figures)) + ", " +
                                best->name + ' ' + figure(median(best->figures)));
    }
    return lines;
}

} // namespace bench
