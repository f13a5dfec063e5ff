#include "HelperReport.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <port/transfer.h>
#include <unistd.h>

#include "LoginHelperContract.h"

namespace {

// A path may hold any byte: none may look like the end of a line, or speak to a terminal.
bool IsControl(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == '\x7f';
}

} // namespace

void HelperReport(const char* szFormat, ...) {
    char szLine[8192] = LOGINHELPER_NAME ": ";
    constexpr std::size_t kPrefix = sizeof LOGINHELPER_NAME ": " - 1;
    va_list arguments;
    va_start(arguments, szFormat);
    const int nText = vsnprintf(szLine + kPrefix, sizeof szLine - kPrefix, szFormat, arguments);
    va_end(arguments);
    if (nText < 0)
        return;
    const std::size_t dwEnd = std::min(kPrefix + static_cast<std::size_t>(nText), sizeof szLine - 1);
    std::replace_if(szLine + kPrefix, szLine + dwEnd, IsControl, '?');
    szLine[dwEnd] = '\n';
    // Nobody to tell it to when this fails.
    static_cast<void>(port_write_all(STDERR_FILENO, szLine, dwEnd + 1));
}
