// Counts what operations of the library cost and compares it with a table of what they may cost at most.
//
// usage: counts [--markdown] TABLE     0: nothing costs more; 1: something does, or was not done; 77: no tracing here
//
// A line of the table is: the operation, system calls, fsyncs, allocations, wake-ups of a service; "-" where it is
// not counted. Threads that run beside each other may cost a call more now and then: the least of a few tries counts.
#include "../Processes.h"
#include "Operations.h"
#include "Tracer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace counts {
namespace {

constexpr int kTries = 5;
constexpr int kUntraceable = 77;
constexpr double kRounding = 0.05; // of a count that is no whole number

constexpr std::array kColumns = {&Counts::calls, &Counts::syncs, &Counts::allocations, &Counts::wakeUps};

struct Line {
    std::string name;
    Counts most;
};

std::string trimmed(const std::string& text) {
    const auto begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::vector<Line> readTable(const char* path) {
    std::ifstream in(path);
    std::vector<Line> lines;
    for (std::string text; std::getline(in, text);) {
        if (text.empty() || text[0] == '#')
            continue;
        std::istringstream fields(text);
        Line line;
        std::getline(fields, line.name, '|');
        line.name = trimmed(line.name);
        for (const auto column : kColumns) {
            std::string field;
            std::getline(fields, field, '|');
            field = trimmed(field);
            if (!field.empty() && field != "-")
                line.most.*column = std::strtod(field.c_str(), nullptr);
        }
        lines.push_back(line);
    }
    return lines;
}

bool isWithin(const Counts& counts, const Counts& most) {
    return std::all_of(kColumns.begin(), kColumns.end(), [&](const auto column) {
        return most.*column < 0 || counts.*column <= most.*column + kRounding;
    });
}

Counts leastOfTries(const Operation& operation, const Counts& most) {
    Counts least = operation.ours();
    for (int tries = 1; tries < kTries && !isWithin(least, most); ++tries) {
        const Counts counts = operation.ours();
        for (const auto column : kColumns)
            least.*column = std::min(least.*column, counts.*column);
    }
    return least;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, std::abs(value - std::round(value)) < kRounding ? "%.0f" : "%.1f",
                  value);
    return value < 0 ? "" : text;
}

void printText(const Line& line, const Counts& counts) {
    std::printf("%-52s", line.name.c_str());
    for (const auto column : kColumns)
        if (line.most.*column >= 0)
            std::printf(" %6s (%s)%s", number(counts.*column).c_str(), number(line.most.*column).c_str(),
                        counts.*column > line.most.*column + kRounding ? " MORE" : "");
        else
            std::printf(" %9s", "-");
    std::printf("\n");
    std::fflush(stdout);
}

void printMarkdown(const Line& line, const Counts& counts, const Counts& bare) {
    std::printf("| %s |", line.name.c_str());
    for (const auto column : kColumns) {
        const std::string value = line.most.*column < 0 ? "" : number(counts.*column);
        const std::string beside = value.empty() ? "" : number(bare.*column);
        std::printf(" %s%s |", value.c_str(), beside.empty() ? "" : (" (" + beside + ")").c_str());
    }
    std::printf("\n");
}

bool check(const std::vector<Line>& table, const std::vector<Operation>& operations, bool bMarkdown) {
    bool bPassed = table.size() == operations.size();
    if (!bPassed)
        std::fprintf(stderr, "counts: %zu operations and %zu lines\n", operations.size(), table.size());
    for (const Line& line : table) {
        const auto found = std::find_if(operations.begin(), operations.end(),
                                        [&](const Operation& one) { return one.name == line.name; });
        if (found == operations.end())
            throw std::runtime_error("no operation '" + line.name + "'");
        const Counts counts = leastOfTries(*found, line.most);
        bPassed = isWithin(counts, line.most) && bPassed;
        if (bMarkdown)
            printMarkdown(line, counts, found->bare ? found->bare() : Counts{});
        else
            printText(line, counts);
    }
    return bPassed;
}

} // namespace

std::function<Counts()> countedIn(FolderWork prepare, FolderWork work, unsigned few, unsigned more) {
    const auto total = [=](unsigned times) {
        const bench::ScratchFolder folder;
        prepare(folder.path(), times);
        return trace([&] { work(folder.path(), times); });
    };
    return [=] {
        const Total start = total(few);
        const Total whole = total(few + more);
        const auto each = [more](std::uint64_t before, std::uint64_t after) {
            return after > before ? static_cast<double>(after - before) / more : 0;
        };
        return Counts{each(start.calls, whole.calls), each(start.syncs, whole.syncs),
                      each(start.allocations, whole.allocations), bench::kUnknown};
    };
}

std::function<Counts()> counted(Work work, unsigned few, unsigned more) {
    return countedIn([](const std::string&, unsigned) {},
                     [work](const std::string&, unsigned times) { work(times); }, few, more);
}

} // namespace counts

int main(int argc, char** argv) {
    const bool bMarkdown = argc == 3 && std::strcmp(argv[1], "--markdown") == 0;
    std::vector<counts::Operation> operations = counts::fileOperations();
    for (const auto& more :
         {counts::messageOperations(), counts::threadOperations(), counts::textOperations()})
        operations.insert(operations.end(), more.begin(), more.end());
    if (bMarkdown)
        std::printf(
            "<!-- begin counts -->\n\n| operation | system calls | fsyncs | allocations | wake-ups |\n"
            "|---|---|---|---|---|\n");
    try {
        const bool bPassed = counts::check(counts::readTable(argv[argc - 1]), operations, bMarkdown);
        if (bMarkdown)
            std::printf("\n<!-- end counts -->\n");
        return bPassed ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const counts::Untraceable& reason) {
        std::printf("skipped: %s\n", reason.what());
        return counts::kUntraceable;
    } catch (const std::exception& reason) {
        std::fprintf(stderr, "counts: %s\n", reason.what());
        return EXIT_FAILURE;
    }
}
