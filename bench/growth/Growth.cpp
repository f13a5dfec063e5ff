// Counts the instructions of a piece of work at n, 2n and 4n, and compares their growth with n log n: the exponent is
// that of what each doubling adds, so that what the work costs to begin with does not count.
//
// usage: growth [--markdown] [NAME-PREFIX ...]   0: nothing grows faster than it may; 1: something does; 77: no valgrind
//        growth --one NAME N                     what is counted, run by the former under valgrind's callgrind
#include "Cases.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <unistd.h>

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#endif

namespace growth {
namespace {

constexpr int kNotHere = 77;
constexpr double kNothing = 5000; // instructions that come and go
using Counts = std::array<double, 3>;

std::vector<Case> allCases() {
    std::vector<Case> all = objectCases();
    for (const auto& more : {fileCases(), eventCases()})
        all.insert(all.end(), more.begin(), more.end());
    return all;
}

int runOne(const std::string& name, unsigned n) {
    for (const Case& subject : allCases()) {
        if (subject.name != name)
            continue;
        const std::function<void()> work = subject.prepare(n);
        CALLGRIND_START_INSTRUMENTATION;
        work();
        finish();
    }
    return 64;
}

// What valgrind says it has collected; its first number is that of instructions.
double instructions(const std::string& name, unsigned n) {
    std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const std::string command =
        "exec valgrind --tool=callgrind --callgrind-out-file=/dev/null --instr-atstart=no '" + self +
        "' --one '" + name + "' " + std::to_string(n) + " 2>&1";
    FILE* const output = popen(command.c_str(), "r");
    double collected = -1;
    std::string said;
    char line[512];
    while (output != nullptr && std::fgets(line, sizeof line, output) != nullptr) {
        said += line;
        if (const char* found = std::strstr(line, "Collected : "))
            collected = std::strtod(found + std::strlen("Collected : "), nullptr);
    }
    if (output == nullptr || pclose(output) != 0 || collected <= 0)
        throw std::runtime_error(name + " was not done:\n" + said);
    return collected;
}

double exponent(const Counts& counts) {
    const double first = counts[1] - counts[0];
    const double second = counts[2] - counts[1];
    return second < kNothing || first < kNothing ? 0 : std::log2(second / first);
}

// Instructions for one more of what there are n of.
double each(const Case& subject, const Counts& counts) {
    return (counts[2] - counts[1]) / (2 * subject.n);
}

// Two counts of the same may differ where threads run beside each other: the least counts.
Counts count(const Case& subject) {
    Counts least{};
    for (int tries = 0; tries < 3; ++tries) {
        for (unsigned i = 0; i < least.size(); ++i) {
            const double counted = instructions(subject.name, subject.n << i);
            least[i] = tries == 0 ? counted : std::min(least[i], counted);
        }
        if (exponent(least) <= subject.most)
            break;
    }
    return least;
}

bool check(const Case& subject, bool bMarkdown) {
    const Counts counts = count(subject);
    const double grows = exponent(counts);
    const bool bPassed = grows <= subject.most;
    if (bMarkdown)
        std::printf("| %s | %u, %u, %u | %.2f | %.0f | %s |\n", subject.name.c_str(), subject.n,
                    2 * subject.n, 4 * subject.n, grows, each(subject, counts), subject.why.c_str());
    else
        std::printf("%-48s %6u %6u %6u   n^%.2f   %9.0f each%s\n", subject.name.c_str(), subject.n,
                    2 * subject.n, 4 * subject.n, grows, each(subject, counts),
                    bPassed ? "" : "   FASTER THAN IT MAY");
    std::fflush(stdout);
    return bPassed;
}

bool checkAll(const std::vector<std::string>& prefixes, bool bMarkdown) {
    bool bPassed = true;
    for (const Case& subject : allCases())
        if (prefixes.empty() || std::any_of(prefixes.begin(), prefixes.end(), [&](const std::string& prefix) {
                return subject.name.starts_with(prefix);
            }))
            bPassed = check(subject, bMarkdown) && bPassed;
    return bPassed;
}

} // namespace

// What is taken down is not counted, and may last.
void finish() {
    CALLGRIND_STOP_INSTRUMENTATION;
    std::fflush(nullptr);
    _exit(EXIT_SUCCESS);
}

} // namespace growth

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 3 && words[0] == "--one")
        return growth::runOne(words[1], static_cast<unsigned>(std::atoi(argv[3])));
    if (std::system("command -v valgrind >/dev/null") != 0) {
        std::printf("skipped: no valgrind\n");
        return growth::kNotHere;
    }
    const bool bMarkdown = !words.empty() && words[0] == "--markdown";
    if (bMarkdown)
        words.erase(words.begin());
    try {
        if (bMarkdown)
            std::printf("<!-- begin growth -->\n\n| of | at | exponent | instructions for one more | |\n"
                        "|---|---|---|---|---|\n");
        const bool bPassed = growth::checkAll(words, bMarkdown);
        if (bMarkdown)
            std::printf("\n<!-- end growth -->\n");
        return bPassed ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& reason) {
        std::fprintf(stderr, "growth: %s\n", reason.what());
        return EXIT_FAILURE;
    }
}
