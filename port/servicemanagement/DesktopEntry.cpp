#include "servicemanagement/DesktopEntry.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <sys/stat.h>
#include <utility>

#include "corefoundation/CFString.h"
#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr std::size_t kMaxText = 1 << 16; // bytes of a file; neither kind has more than a few thousand
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

bool readItem(const std::string& path, std::string& text) {
    text.clear();
    // A pipe that somebody has put there is not waited for.
    const UniqueFd file(sys::open(path.c_str(), O_RDONLY | O_NONBLOCK));
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0)
        return errno == ENOENT;
    char part[4096];
    ssize_t got = 0;
    while (S_ISREG(status.st_mode) && text.size() < kMaxText &&
           (got = sys::read(file.get(), part, sizeof part)) > 0)
        text.append(part, static_cast<std::size_t>(got));
    return got >= 0;
}

std::string valueIn(std::string_view text, std::string_view section, std::string_view key) {
    std::string_view value;
    bool inSection = false;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.starts_with('['))
            inSection = line.starts_with(section);
        const std::size_t equals = line.find('=');
        if (!inSection || equals == line.npos ||
            line.substr(0, line.find_last_not_of(kBlanks, equals - 1) + 1) != key)
            continue;
        const std::size_t first = line.find_first_not_of(kBlanks, equals + 1);
        value = first == line.npos ? "" : line.substr(first, line.find_last_not_of(kBlanks) + 1 - first);
    }
    return std::string(value);
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
