#include "Driver.h"
#include "Result.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

constexpr int kFewest = 5; // repetitions of a case that is timed

std::vector<std::function<void(std::vector<Case>&)>>& fillers() {
    static auto& all = *new std::vector<std::function<void(std::vector<Case>&)>>;
    return all;
}

struct Options {
    bool markdown = false;
    bool list = false;
    int repetitions = 0;
    std::string plotFolder;
    std::vector<std::string> names;
};

[[noreturn]] void usage(const char* program) {
    std::fprintf(stderr,
                 "usage: %s [--list] [--markdown] [--plot[=FOLDER]] [--repetitions=N] [NAME-PREFIX ...]\n",
                 program);
    std::exit(64);
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string_view word = argv[i];
        if (word == "--markdown")
            options.markdown = true;
        else if (word == "--list")
            options.list = true;
        else if (word == "--plot")
            options.plotFolder = ".";
        else if (word.starts_with("--plot="))
            options.plotFolder = word.substr(std::strlen("--plot="));
        else if (word.starts_with("--repetitions="))
            options.repetitions = std::atoi(argv[i] + std::strlen("--repetitions="));
        else if (word.starts_with('-'))
            usage(argv[0]);
        else
            options.names.emplace_back(word);
    }
    return options;
}

bool selected(const Case& subject, const Options& options) {
    return options.names.empty() ||
           std::any_of(options.names.begin(), options.names.end(),
                       [&](const std::string& name) { return subject.name.starts_with(name); });
}

// One case on its way. A row that has failed, or cannot run here, is not run again.
class Measurement {
public:
    explicit Measurement(const Case& theSubject) : subject(theSubject) {
        result.name = subject.name;
        result.unit = subject.unit;
        result.better = subject.better;
        for (const Row& row : subject.rows)
            result.rows.push_back({row.name, row.whose, {}, {}, {}, {}, {}});
    }

    // Each repetition begins with another row, so that none always follows the same one.
    CaseResult run(int repetitions) {
        const int most = repetitions > 0 ? repetitions : subject.effort.most;
        if (most > 1)
            repeat(0); // nothing is kept of the first one
        const auto start = Clock::now();
        for (int done = 0; done < most; ++done) {
            const double seconds = nanosecondsSince(start) * 1e-9;
            if (repetitions == 0 && done >= kFewest && seconds >= subject.effort.seconds)
                break;
            keepSamples(repeat(static_cast<std::size_t>(done)));
        }
        return std::move(result);
    }
    bool failed() const { return bFailed; }

private:
    std::vector<Sample> repeat(std::size_t first) {
        std::vector<Sample> samples(subject.rows.size(), kUnknown);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const std::size_t at = (first + i) % samples.size();
            if (result.rows[at].missing.empty())
                samples[at] = once(at);
        }
        return samples;
    }

    Sample once(std::size_t at) {
        RowResult& row = result.rows[at];
        try {
            const Sample sample = subject.rows[at].measure();
            need(std::isfinite(sample.figure) && sample.figure >= 0, "it gave no figure");
            return sample;
        } catch (const NotHere& reason) {
            row.missing = std::string("not here: ") + reason.what();
        } catch (const std::exception& reason) {
            row.missing = std::string("FAILED: ") + reason.what();
            std::fprintf(stderr, "bench: %s, %s: %s\n", subject.name.c_str(), row.name.c_str(),
                         row.missing.c_str());
            bFailed = true;
        }
        row.figures.clear();
        return kUnknown;
    }

    void keepSamples(const std::vector<Sample>& samples) {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            RowResult& row = result.rows[i];
            if (!row.missing.empty())
                continue;
            row.figures.push_back(samples[i].figure);
            if (samples[0].figure > 0)
                row.ratios.push_back(samples[i].figure / samples[0].figure);
            if (samples[i].percentile99 >= 0)
                row.percentiles99.push_back(samples[i].percentile99);
            if (samples[i].cpu >= 0)
                row.cpus.push_back(samples[i].cpu);
        }
    }

    const Case& subject;
    CaseResult result;
    bool bFailed = false;
};

std::vector<Case> selectedCases(const Options& options) {
    std::vector<Case> cases;
    for (const auto& fill : fillers())
        fill(cases);
    std::erase_if(cases, [&](const Case& subject) { return !selected(subject, options); });
    std::stable_sort(cases.begin(), cases.end(),
                     [](const Case& a, const Case& b) { return a.name < b.name; });
    return cases;
}

// What the cases are given, and what their rows need to begin with.
void tellTime(const std::vector<Case>& cases, const Options& options) {
    double seconds = 0;
    for (const Case& subject : cases)
        seconds += subject.effort.seconds * 1.15;
    std::fprintf(stderr, "bench: %zu cases, ", cases.size());
    if (options.repetitions > 0)
        std::fprintf(stderr, "%d repetitions of each\n", options.repetitions);
    else
        std::fprintf(stderr, "about %.0f s where nothing else runs\n", std::ceil(seconds / 10) * 10);
}

void printMarkdown(const std::vector<CaseResult>& results) {
    std::printf("<!-- begin machine -->\n\n%s\n\n<!-- end machine -->\n", machine().c_str());
    for (auto begin = results.begin(); begin != results.end();) {
        const auto end = std::find_if(
            begin, results.end(), [&](const CaseResult& result) { return result.group() != begin->group(); });
        printGroup({begin, end});
        begin = end;
    }
    std::printf("<!-- begin behind -->\n\n");
    const std::vector<std::string> lines = behind(results);
    for (const std::string& line : lines)
        std::printf("- %s\n", line.c_str());
    if (lines.empty())
        std::printf("- none\n");
    std::printf("\n<!-- end behind -->\n");
}

int runAll(const std::vector<Case>& cases, const Options& options) {
    const auto start = Clock::now();
    tellTime(cases, options);
    if (!options.markdown)
        std::printf("%s\n", machine().c_str());
    bool failed = false;
    std::vector<CaseResult> results;
    for (const Case& subject : cases) {
        Measurement measurement(subject);
        results.push_back(measurement.run(options.repetitions));
        failed = measurement.failed() || failed;
        if (!options.markdown)
            printText(results.back());
    }
    if (options.markdown)
        printMarkdown(results);
    else
        for (const std::string& line : behind(results))
            std::printf("\nbehind a peer: %s", line.c_str());
    std::fprintf(stderr, "\nbench: %.0f s\n", nanosecondsSince(start) * 1e-9);
    if (!options.plotFolder.empty() && !plot(results, options.plotFolder)) {
        std::fprintf(stderr, "bench: cannot write pictures to '%s'\n", options.plotFolder.c_str());
        failed = true;
    }
    return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace

Register::Register(std::function<void(std::vector<Case>&)> fill) {
    fillers().push_back(std::move(fill));
}

} // namespace bench

int main(int argc, char** argv) {
    const bench::Options options = bench::parse(argc, argv);
    const std::vector<bench::Case> cases = bench::selectedCases(options);
    if (options.list) {
        for (const bench::Case& subject : cases)
            std::printf("%s\n", subject.name.c_str());
        return EXIT_SUCCESS;
    }
    return bench::runAll(cases, options);
}
