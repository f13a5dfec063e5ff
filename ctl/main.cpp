// loginhelperctl: the main application's side of the conversation with the login helper, by hand.
#include <cstdio>
#include <exception>
#include <port/bsd.h>
#include <port/no_memory.h>
#include <sysexits.h>

#include "Commands.h"
#include "ForeignEnvironment.h"

int main(int argc, char* argv[]) {
    std::set_terminate(port_end_by_exception);
    port_open_standard_descriptors();
    const Options options = ParseOptions(argc, argv);
    Report report(options.szCommand);
    if (std::string sWhy; FindForeignFolder(sWhy))
        report.Fail(EX_NOPERM, sWhy);
    else if (!RunCommand(options, report))
        EndWithUsage(options.bJSON, std::string("unknown command '") + options.szCommand + "'");
    if (report.Print(options.bJSON))
        return report.GetStatus();
    fputs(LOGINHELPER_CONTROL ": the output cannot be written\n", stderr);
    return EX_IOERR;
}
