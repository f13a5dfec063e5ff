#include "Options.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <sysexits.h>

namespace {

constexpr long LongestTimeout = 600000; // ten minutes, in milliseconds

constexpr char Help[] =
    "Usage: loginhelperctl [OPTION]... COMMAND\n"
    "Talk to the login helper as the main application does.\n"
    "\n"
    "Commands:\n"
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
    "      --bundle PATH   bundle that `identify` names (default: /Applications/Zubeq Free.app)\n"
    "      --service NAME  service to talk to\n"
    "      --timeout MS    how long to wait for a reply, in milliseconds (default: 2000)\n"
    "      --json          print one JSON object\n"
    "  -h, --help          display this help and exit\n"
    "  -V, --version       output version information and exit\n"
    "\n"
    "Exit status is 0, or 64 for a wrong command line, 66 for a path that does not exist, 69 when the\n"
    "helper cannot be reached, 73 when the settings cannot be written, 74 when the output cannot be\n"
    "written, 75 when no reply came in time.\n";

[[noreturn]] void EndWithUsage() {
    fputs("Try 'loginhelperctl --help' for more information.\n", stderr);
    exit(EX_USAGE);
}

[[noreturn]] void EndWithText(const char* szText) {
    fputs(szText, stdout);
    exit(fflush(stdout) == 0 ? EX_OK : EX_IOERR);
}

unsigned ParseTimeout(const char* szText) {
    char* pEnd = nullptr;
    errno = 0;
    const long nValue = strtol(szText, &pEnd, 10);
    if (pEnd == szText || *pEnd != '\0' || errno != 0 || nValue < 1 || nValue > LongestTimeout) {
        fprintf(stderr, "loginhelperctl: invalid time-out '%s': 1 to %ld milliseconds\n", szText,
                LongestTimeout);
        EndWithUsage();
    }
    return static_cast<unsigned>(nValue);
}

void ParseCommand(int nCount, char* szWords[], Options& options) {
    if (nCount == 0) {
        fputs("loginhelperctl: missing command\n", stderr);
        EndWithUsage();
    }
    options.szCommand = szWords[0];
    const int nWanted = strcmp(szWords[0], "enable") == 0 ? 2 : 1;
    if (nCount < nWanted) {
        fputs("loginhelperctl: 'enable' needs the path of the bundle\n", stderr);
        EndWithUsage();
    }
    if (nCount > nWanted) {
        fprintf(stderr, "loginhelperctl: extra operand '%s'\n", szWords[nWanted]);
        EndWithUsage();
    }
    if (nWanted == 2)
        options.szPath = szWords[1];
}

} // namespace

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
    int nOption;
    while ((nOption = getopt_long(argc, argv, "hV", LongOptions, nullptr)) != -1) {
        switch (nOption) {
        case OptionBundle:
            options.szBundle = optarg;
            break;
        case OptionService:
            options.szService = optarg;
            break;
        case OptionTimeout:
            options.dwTimeout = ParseTimeout(optarg);
            break;
        case OptionJSON:
            options.bJSON = true;
            break;
        case 'h':
            EndWithText(Help);
        case 'V':
            EndWithText("loginhelperctl (LFoundation) " LFOUNDATION_VERSION "\n");
        default:
            EndWithUsage();
        }
    }
    ParseCommand(argc - optind, argv + optind, options);
    return options;
}
