// loginhelperctl: the main application's side of the conversation with the login helper, by hand.
#include <cstdio>
#include <sysexits.h>

#include "Commands.h"

int main(int argc, char* argv[]) {
    const Options options = ParseOptions(argc, argv);
    Report report(options.szCommand);
    if (!RunCommand(options, report)) {
        fprintf(stderr,
                "loginhelperctl: unknown command '%s'\nTry 'loginhelperctl --help' for more information.\n",
                options.szCommand);
        return EX_USAGE;
    }
    if (report.Print(options.bJSON))
        return report.GetStatus();
    fputs("loginhelperctl: the output cannot be written\n", stderr);
    return EX_IOERR;
}
