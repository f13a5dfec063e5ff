// The files that say what a session or a service manager starts: desktop entries, read and written, and units, read.
//
// Thread-safety: reentrant.
#pragma once

#include <string>
#include <string_view>

namespace port {

constexpr std::string_view kDesktopEntry = "[Desktop Entry]";

// The text of such a file, cut at about 64 KiB; empty when nothing is there, or no file. False with errno: it cannot be
// read, and nobody knows what it says. Blocks on the disk.
bool readItem(const std::string& path, std::string& text);

// The last value of the key in the section, as it is written there, without the blanks around it; empty when there is
// none.
std::string valueIn(std::string_view text, std::string_view section, std::string_view key);

// The program of a command line: its first word. Entries and units write quotes and backslashes alike.
std::string programOf(std::string_view command);

// The text of an entry's value, whose escapes "\s", "\n", "\t", "\r" and "\\" are resolved.
std::string unescaped(std::string_view value);

// What an entry is made of. False when no entry can say that: for a text that is no UTF-8 or has other control
// characters than tab and line ends, or for a program with "=" in its path.
struct DesktopEntry {
    std::string name;
    std::string comment;
    std::string program; // a full path

    bool write(std::string& text) const;
};

} // namespace port
