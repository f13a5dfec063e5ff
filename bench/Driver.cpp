#include "Driver.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

std::vector<std::function<void(std::vector<Case>&)>>& fillers() {
    static auto& all = *new std::vector<std::function<void(std::vector<Case>&)>>;
    return all;
}

struct Options {
    bool markdown = false;
    bool list = false;
    int repetitions = 0;
    std::vector<std::string> names;
};

double median(std::vector<double> values) {
    if (values.empty())
        return -1;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct Figures {
    std::vector<double> values;
    std::vector<double> ratios;
};

// One warm-up of each row, then the repetitions, rows interleaved.
std::vector<Figures> measure(const Case& subject, int repetitions) {
    std::vector<Figures> figures(subject.rows.size());
    for (int repetition = -1; repetition < repetitions; ++repetition) {
        double floor = -1;
        for (std::size_t i = 0; i < subject.rows.size(); ++i) {
            const double figure = subject.rows[i].measure();
            if (i == 0)
                floor = figure;
            if (repetition < 0 || figure < 0 || floor <= 0)
                continue;
            figures[i].values.push_back(figure);
            figures[i].ratios.push_back(figure / floor);
        }
    }
    return figures;
}

void print(const Case& subject, const std::vector<Figures>& figures, bool markdown) {
    const char* better = subject.better == Better::Lower ? "lower is better" : "higher is better";
    if (markdown)
        std::printf("\n**%s** (%s, %s)\n\n| row | median | ratio |\n|---|---|---|\n", subject.name.c_str(),
                    subject.unit.c_str(), better);
    else
        std::printf("\n%s (%s, %s)\n", subject.name.c_str(), subject.unit.c_str(), better);
    for (std::size_t i = 0; i < subject.rows.size(); ++i) {
        const char* name = subject.rows[i].name.c_str();
        if (figures[i].values.empty()) {
            std::printf(markdown ? "| %s | not available here | |\n" : "  %-34s not available here\n", name);
            continue;
        }
        const double value = median(figures[i].values);
        const double ratio = median(figures[i].ratios);
        std::printf(markdown ? "| %s | %.4g | %.2fx |\n" : "  %-34s %12.4g  %6.2fx\n", name, value, ratio);
    }
    std::fflush(stdout);
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--markdown") == 0)
            options.markdown = true;
        else if (std::strcmp(argv[i], "--list") == 0)
            options.list = true;
        else if (std::strncmp(argv[i], "--repetitions=", 14) == 0)
            options.repetitions = std::atoi(argv[i] + 14);
        else if (argv[i][0] == '-') {
            std::fprintf(stderr, "usage: %s [--list] [--markdown] [--repetitions=N] [NAME-PREFIX ...]\n",
                         argv[0]);
            std::exit(64);
        } else
            options.names.emplace_back(argv[i]);
    }
    return options;
}

bool selected(const Case& subject, const Options& options) {
    return options.names.empty() ||
           std::any_of(options.names.begin(), options.names.end(),
                       [&](const std::string& name) { return subject.name.rfind(name, 0) == 0; });
}

} // namespace

Register::Register(std::function<void(std::vector<Case>&)> fill) {
    fillers().push_back(std::move(fill));
}

} // namespace bench

int main(int argc, char** argv) {
    const bench::Options options = bench::parse(argc, argv);
    std::vector<bench::Case> cases;
    for (const auto& fill : bench::fillers())
        fill(cases);
    std::stable_sort(cases.begin(), cases.end(),
                     [](const bench::Case& a, const bench::Case& b) { return a.name < b.name; });
    for (const bench::Case& subject : cases) {
        if (!bench::selected(subject, options))
            continue;
        if (options.list) {
            std::printf("%s\n", subject.name.c_str());
            continue;
        }
        const int repetitions = options.repetitions > 0 ? options.repetitions : subject.repetitions;
        bench::print(subject, bench::measure(subject, repetitions), options.markdown);
    }
    return 0;
}
