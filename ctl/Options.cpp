#include "Options.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <sysexits.h>

#include "Report.h"

namespace {

constexpr long kLongestTimeout = 600000; // ten minutes, in milliseconds

constexpr char kHelp[] =
    "Usage: " LOGINHELPER_CONTROL " [OPTION]... COMMAND\n"
    "Talk to the login helper as the main application does.\n"
    "\n"
    "Commands:\n"
    "  register     have the session start the helper at login, and start it now\n"
    "  unregister   undo that: remove entry and settings, and end the helper\n"
    "  status       tell what is registered, set and running, and what the next login does\n"
    "  test         ask whether the helper answers\n"
    "  identify     introduce the main application to the helper\n"
    "  enable PATH  launch the application bundle at PATH at the next login\n"
    "  disable      launch nothing at login\n"
    "  query        ask for the setting\n"
    "  quit         end the helper\n"
    "  doctor       tell what the next login would do, and why\n"
    "  forget       remove the helper's settings\n"
    "\n"
    "Options:\n"
    "      --bundle PATH   bundle that `identify` names (default: %s)\n"
    "      --service NAME  service to talk to\n"
    "      --timeout MS    how long to wait for a reply, in milliseconds (default: 2000)\n"
    "      --json          print one JSON object\n"
    "  -h, --help          display this help and exit\n"
    "  -V, --version       output version information and exit\n"
    "\n"
    "Exit status is 0, or 1 from `status` when the next login launches nothing, 64 for a wrong command\n"
    "line, 66 for a path or a helper that does not exist, 69 when the helper cannot be reached, 71 without\n"
    "descriptors or memory, 73 when settings or entry cannot be written, 74 when the output cannot be\n"
    "written, 75 when no reply came in time, 77 when you have switched the entry off, when the helper is\n"
    "where others may change it or in a temporary folder, and for root in a user's environment.\n";

[[noreturn]] void EndWithText(const char* szText) {
    fputs(szText, stdout);
    exit(fflush(stdout) == 0 ? EX_OK : EX_IOERR);
}

unsigned ParseTimeout(const char* szText, bool bJSON) {
    char* pEnd = nullptr;
    errno = 0;
    const long nValue = strtol(szText, &pEnd, 10);
    if (pEnd == szText || *pEnd != '\0' || errno != 0 || nValue < 1 || nValue > kLongestTimeout)
        EndWithUsage(bJSON, "invalid time-out '" + std::string(szText) + "': 1 to " +
                                std::to_string(kLongestTimeout) + " milliseconds");
    return static_cast<unsigned>(nValue);
}

void ParseCommand(int nCount, char* szWords[], Options& options) {
    if (nCount == 0)
        EndWithUsage(options.bJSON, "missing command");
    options.szCommand = szWords[0];
    const int nWanted = strcmp(szWords[0], "enable") == 0 ? 2 : 1;
    if (nCount < nWanted)
        EndWithUsage(options.bJSON, "'enable' needs the path of the bundle");
    if (nCount > nWanted)
        EndWithUsage(options.bJSON, std::string("extra operand '") + szWords[nWanted] + "'");
    if (nWanted == 2)
        options.szPath = szWords[1];
}

// What is wrong may come before the option that says how to tell it.
bool IsJSONWanted(int argc, char* argv[]) {
    return std::any_of(argv, argv + argc, [](const char* szWord) { return strcmp(szWord, "--json") == 0; });
}

} // namespace

void EndWithUsage(bool bJSON, const std::string& sReason) {
    Report report("");
    report.Fail(EX_USAGE, sReason);
    report.Print(bJSON);
    if (!bJSON)
        fputs("Try '" LOGINHELPER_CONTROL " --help' for more information.\n", stderr);
    exit(EX_USAGE);
}

Options ParseOptions(int argc, char* argv[]) {
    enum { OptionBundle = 256, OptionService, OptionTimeout, OptionJSON };
    static const option LongOptions[] = {{"bundle", required_argument, nullptr, OptionBundle},
                                         {"service", required_argument, nullptr, OptionService},
                                         {"timeout", required_argument, nullptr, OptionTimeout},
                                         {"json", no_argument, nullptr, OptionJSON},
                                         {"help", no_argument, nullptr, 'h'},
                                         {"version", no_argument, nullptr, 'V'},
                                         {nullptr, 0, nullptr, 0}};
    Options options;
    options.bJSON = IsJSONWanted(argc, argv);
    opterr = 0; // what is wrong is told below
    int nOption;
    while ((nOption = getopt_long(argc, argv, ":hV", LongOptions, nullptr)) != -1) {
        switch (nOption) {
        case OptionBundle:
            options.szBundle = optarg;
            break;
        case OptionService:
            options.szService = optarg;
            break;
        case OptionTimeout:
            options.dwTimeout = ParseTimeout(optarg, options.bJSON);
            break;
        case OptionJSON:
            options.bJSON = true;
            break;
        case 'h':
            printf(kHelp, LMainAppDefaultPath);
            EndWithText("");
        case 'V':
            EndWithText(LOGINHELPER_CONTROL " (LFoundation) " LFOUNDATION_VERSION "\n");
        case ':':
            EndWithUsage(options.bJSON, std::string("option '") + argv[optind - 1] + "' needs an argument");
        default:
            EndWithUsage(options.bJSON, std::string("wrong option '") + argv[optind - 1] + "'");
        }
    }
    ParseCommand(argc - optind, argv + optind, options);
    return options;
}
