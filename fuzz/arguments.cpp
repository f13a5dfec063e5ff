// The command line expander beside a character-by-character reading of its rules.
#include "strings/LStringUtilities.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// Every argument up to the first empty one.
std::vector<std::string> naive(const std::string& line) {
    std::vector<std::string> arguments;
    std::size_t i = 0;
    for (;;) {
        while (i < line.size() && static_cast<unsigned char>(line[i]) <= 32)
            ++i;
        std::string argument;
        for (bool quoted = false; i < line.size();) {
            const char c = line[i++];
            const bool escapes = c == '\\' && i < line.size() && line[i] == ' ';
            if ((c == '"' && quoted) || (c == ' ' && !quoted))
                break;
            if (c == '"')
                quoted = true;
            else
                argument += escapes ? line[i++] : c;
        }
        if (argument.empty())
            return arguments;
        arguments.push_back(argument);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string line = bytes.c_str();
    std::vector<std::string> arguments;
    LCommandLineArgumentStringExpander expander(line.c_str());
    while (expander.NextArgument())
        arguments.emplace_back(expander.GetArgument().GetText());
    const std::vector<std::string> expected = naive(line);
    const bool counted = expected.empty() || expander.GetArgumentCount(line.c_str()) == expected.size() - 1;
    if (arguments != expected || !counted) {
        std::fprintf(stderr, "read otherwise: %s\n", line.c_str());
        std::abort();
    }
    return 0;
}
