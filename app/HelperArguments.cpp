#include "HelperArguments.h"

#include <cstdlib>
#include <string_view>
#include <sysexits.h>
#include <unistd.h>

#include "HelperReport.h"
#include "LoginHelperContract.h"

namespace {

constexpr std::string_view kHelp =
    "Usage: " LOGINHELPER_NAME " [--serve]\n"
    "Launch the main application at login, if the user has asked for that; while it runs, serve the\n"
    "service through which it changes the setting. Started by the session, not by hand.\n"
    "\n"
    "      --serve    only serve, launch nothing, and end when nobody asks any more\n"
    "  -h, --help     display this help and exit\n"
    "  -V, --version  output version information and exit\n"
    "\n"
    "Exit status is 0, or 64 for a wrong command line, 69 when --serve cannot serve, 71 without memory, 74\n"
    "when the output cannot be written, 77 for root with a user's folders.\nSee " LOGINHELPER_CONTROL
    " for the setting.\n";
constexpr std::string_view kVersion = LOGINHELPER_NAME " (LFoundation) " LFOUNDATION_VERSION "\n";

[[noreturn]] void EndWithText(std::string_view text) {
    const bool bTold = write(STDOUT_FILENO, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    exit(bTold ? EX_OK : EX_IOERR);
}

} // namespace

LHelperMode ParseHelperArguments(int argc, char* argv[]) {
    const std::string_view word = argv[1];
    if (word == "--help" || word == "-h")
        EndWithText(kHelp);
    if (word == "--version" || word == "-V")
        EndWithText(kVersion);
    if (word == "--serve" && argc == 2)
        return LHelperMode::Serve;
    HelperReport("unexpected argument '%s'", argv[word == "--serve" ? 2 : 1]);
    HelperReport("try '" LOGINHELPER_NAME " --help'");
    exit(EX_USAGE);
}
