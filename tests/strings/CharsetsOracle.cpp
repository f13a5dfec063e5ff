#include "strings/CharsetsOracle.h"

#include <iterator>
#include <sstream>

namespace {

struct Range {
    unsigned char low, high;
};

// The table of well-formed sequences, row by row: the ranges of the bytes.
const std::vector<std::vector<Range>> wellFormed = {
    {{0x01, 0x7F}},
    {{0xC2, 0xDF}, {0x80, 0xBF}},
    {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}},
    {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}},
    {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}},
    {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}},
};

bool Matches(const std::vector<Range>& row, std::string_view text) {
    if (text.size() < row.size())
        return false;
    for (std::size_t i = 0; i < row.size(); ++i)
        if (static_cast<unsigned char>(text[i]) < row[i].low ||
            static_cast<unsigned char>(text[i]) > row[i].high)
            return false;
    return true;
}

std::vector<std::string> Words(const char* text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

} // namespace

OracleDecoded OracleDecode(std::string_view text) {
    constexpr unsigned leadBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    OracleDecoded result;
    for (bool found = true; found;) {
        found = false;
        const std::string_view rest = text.substr(result.read);
        for (const auto& row : wellFormed) {
            if (!Matches(row, rest))
                continue;
            std::uint32_t value = static_cast<unsigned char>(rest[0]) & leadBits[row.size()];
            for (std::size_t i = 1; i < row.size(); ++i)
                value = value * 64 + (static_cast<unsigned char>(rest[i]) & 0x3F);
            result.values.push_back(value);
            result.read += row.size();
            found = true;
            break;
        }
    }
    return result;
}

std::string RandomText(std::mt19937& random, std::size_t bytes) {
    const auto below = [&random](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    static const std::vector<std::string> letters = Words(
        "e \x7F \xC2\x80 \xC3\xA9 \xD0\xB6 \xDF\xBF \xE0\xA0\x80 \xE4\xB8\xAD \xED\x9F\xBF \xEE\x80\x80 "
        "\xEF\xBF\xBF \xF0\x90\x80\x80 \xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF");
    static const std::vector<std::string> faults = Words(
        "\x80 \xBF \xC0\x80 \xC1\xBF \xC3 \xE0\x9F\xBF \xE4\xB8 \xED\xA0\x80 \xF0\x8F\xBF\xBF \xF0\x9F\x98 "
        "\xF4\x90\x80\x80 \xF5\x80\x80\x80 \xF8\x88\x80\x80\x80 \xFF");
    const std::size_t first = below(std::size(letters));
    const std::size_t span = 1 + below(std::size(letters) - first);
    const std::size_t spaces = 1 + below(12); // ASCII in between, from none to much
    std::string text;
    while (text.size() < bytes)
        if (below(12) >= spaces)
            text.append(1 + below(20), 'a');
        else
            text += letters[first + below(span)];
    if (below(2) == 0)
        text.insert(below(text.size() + 1), faults[below(std::size(faults))]);
    if (!text.empty() && below(8) == 0)
        text[below(text.size())] = static_cast<char>(1 + below(255));
    return text;
}
