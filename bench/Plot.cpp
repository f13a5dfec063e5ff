// Pictures of the figures: a bar up to the median of each row, a thin line from the least to the greatest figure.
#include "Result.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>

namespace bench {
namespace {

constexpr int kWidth = 860;
constexpr int kNames = 290; // where the bars begin
constexpr int kBars = 390;  // the longest bar
constexpr int kLine = 18;   // the height of a row
constexpr int kTitle = 34;

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text)
        out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
    return out;
}

const char* colour(const RowResult& row) {
    if (row.whose == Whose::Ours)
        return "#2a6fb0";
    return isPeer(row) ? "#9a9a9a" : "#d6d6d6";
}

class Picture {
public:
    void add(const CaseResult& result) {
        y += kTitle;
        text(8, "font-weight='bold'", escaped(result.title()) + " (" + result.unit + ")");
        double longest = 0;
        for (const RowResult& row : result.rows)
            longest = std::max(longest, row.greatest());
        for (const RowResult& row : result.rows) {
            y += kLine;
            text(20, "", escaped(row.name));
            if (row.figures.empty())
                text(kNames, "fill='#a00000'", escaped(row.missing));
            else
                bar(row, longest > 0 ? kBars / longest : 0);
        }
    }
    bool save(const std::string& path) const {
        std::ofstream file(path);
        file
            << "<svg xmlns='http://www.w3.org/2000/svg' width='" << kWidth << "' height='" << y + kLine
            << "' font-family='sans-serif' font-size='12'>\n<rect width='100%' height='100%' fill='white'/>\n"
            << shapes << "</svg>\n";
        return file.flush().good();
    }

private:
    void text(double x, const char* style, const std::string& words) {
        char place[60];
        std::snprintf(place, sizeof place, "<text x='%.0f' y='%d' ", x, y);
        shapes += place + std::string(style) + '>' + words + "</text>\n";
    }
    void bar(const RowResult& row, double scale) {
        const double middle = median(row.figures);
        char shape[300];
        std::snprintf(shape, sizeof shape,
                      "<rect x='%d' y='%d' width='%.1f' height='12' fill='%s'/>\n"
                      "<path d='M%.1f %d H%.1f' stroke='black'/>\n",
                      kNames, y - 10, std::max(1.0, middle * scale), colour(row),
                      kNames + row.least() * scale, y - 4, kNames + row.greatest() * scale);
        shapes += shape;
        std::snprintf(shape, sizeof shape, "%.4g", middle);
        std::string words = shape;
        if (!row.ratios.empty()) {
            std::snprintf(shape, sizeof shape, ", %.2fx", median(row.ratios));
            words += shape;
        }
        text(kNames + row.greatest() * scale + 8, "", words);
    }

    int y = 0;
    std::string shapes;
};

} // namespace

bool plot(const std::vector<CaseResult>& results, const std::string& folder) {
    std::map<std::string, Picture> pictures;
    for (const CaseResult& result : results)
        pictures[std::string(result.group())].add(result);
    return std::all_of(pictures.begin(), pictures.end(), [&](const auto& named) {
        return named.second.save(folder + '/' + named.first + ".svg");
    });
}

} // namespace bench
