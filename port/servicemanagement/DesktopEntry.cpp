#include "servicemanagement/DesktopEntry.h"

#include <algorithm>
#include <fstream>
#include <utility>

#include "corefoundation/CFString.h"

namespace port {
namespace {

constexpr std::size_t kMaxLines = 1000; // of a file; neither kind has more than a few dozen
constexpr const char* kBlanks = " \t\r";

// Letter behind the backslash, and what it stands for.
constexpr std::pair<char, char> kEscapes[] = {
    {'s', ' '}, {'n', '\n'}, {'t', '\t'}, {'r', '\r'}, {'\\', '\\'}};

bool isControl(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

bool isText(std::string_view text) {
    return makeString(text) && std::none_of(text.begin(), text.end(), [](char c) {
               return isControl(c) && c != '\n' && c != '\t' && c != '\r';
           });
}

// A blank at either end of a value would be lost, one inside stays as it is.
std::string escaped(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isInner = i != 0 && i + 1 != text.size();
        const auto* const found = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                               [&](const auto& escape) { return escape.second == text[i]; });
        if (found == std::end(kEscapes) || (text[i] == ' ' && isInner))
            value += text[i];
        else
            value.append({'\\', found->first});
    }
    return value;
}

// One argument of a command line, always in quotes; "%" begins a code of the line's own.
std::string quoted(std::string_view argument) {
    std::string word = "\"";
    for (const char c : argument) {
        if (c == '"' || c == '`' || c == '$' || c == '\\')
            word += '\\';
        word.append(c == '%' ? 2 : 1, c);
    }
    return word + '"';
}

} // namespace

std::string valueIn(const std::string& path, std::string_view section, std::string_view key) {
    std::ifstream file(path);
    std::string line;
    std::string value;
    bool inSection = false;
    for (std::size_t count = 0; count < kMaxLines && std::getline(file, line); ++count) {
        if (line.starts_with('['))
            inSection = std::string_view(line).starts_with(section);
        const std::size_t equals = line.find('=');
        if (!inSection || equals == line.npos ||
            line.substr(0, line.find_last_not_of(kBlanks, equals - 1) + 1) != key)
            continue;
        const std::size_t first = line.find_first_not_of(kBlanks, equals + 1);
        value = first == line.npos ? "" : line.substr(first, line.find_last_not_of(kBlanks) + 1 - first);
    }
    return value;
}

std::string programOf(std::string_view command) {
    // Marks of a unit: how the program is started.
    command.remove_prefix(std::min(command.find_first_not_of("@-:+!|"), command.size()));
    const bool isQuoted = command.starts_with('"');
    std::string program;
    for (std::size_t i = isQuoted ? 1 : 0; i < command.size() && command[i] != (isQuoted ? '"' : ' '); ++i) {
        // "%%" is the mark itself; other marks name what only the service manager knows.
        if ((command[i] == '\\' || command.substr(i, 2) == "%%") && i + 1 < command.size())
            ++i;
        program += command[i];
    }
    return program;
}

std::string unescaped(std::string_view value) {
    std::string text;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char next = i + 1 < value.size() ? value[i + 1] : '\0';
        const auto* const found = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                               [&](const auto& escape) { return escape.first == next; });
        if (value[i] != '\\' || found == std::end(kEscapes)) {
            text += value[i];
        } else {
            text += found->second;
            ++i;
        }
    }
    return text;
}

bool DesktopEntry::write(std::string& text) const {
    if (!isText(name) || !isText(comment) || !isText(program) || program.find('=') != program.npos)
        return false;
    // A session leaves out an entry whose TryExec is gone, as when the application was thrown away.
    text = std::string(kDesktopEntry) + "\nType=Application\nName=" + escaped(name) +
           "\nComment=" + escaped(comment) + "\nExec=" + escaped(quoted(program)) +
           "\nTryExec=" + escaped(program) + "\nX-GNOME-Autostart-enabled=true\n";
    return true;
}

} // namespace port
