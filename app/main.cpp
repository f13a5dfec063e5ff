#include <AppKit/AppKit.h>

#include <exception>
#include <port/heap.h>
#include <port/login_helper.h>
#include <port/no_memory.h>
#include <string>
#include <sysexits.h>

#include "ForeignEnvironment.h"
#include "HelperArguments.h"
#include "HelperReport.h"
#include "LServingHelper.h"
#include "LoginDecision.h"
#include "debug/LDebugSignals.h" // brings the library's signal handlers

// The runtime's own would print the exception's type, and brings a demangler for that.
void __gnu_cxx::__verbose_terminate_handler() {
    port_end_by_exception();
}

namespace {

NSApplicationDelegate* MakeLoginHelper() {
    return new LLoginHelper;
}

NSApplicationDelegate* MakeServingHelper() {
    return new LServingHelper;
}

// A login has no arguments, and need not bring their reader to memory. One whom a person has just switched on is
// there to be talked to: a launch would be no login's.
LHelperMode ModeOf(int argc, char* argv[]) {
    if (argc > 1)
        return ParseHelperArguments(argc, argv);
    return port_started_by_enabling() && !IsMainApplicationRunning() ? LHelperMode::Serve
                                                                     : LHelperMode::Login;
}

} // namespace

int main(int argc, char* argv[]) {
    port_share_heap();
    const LHelperMode eMode = ModeOf(argc, argv);
    if (std::string sWhy; FindForeignFolder(sWhy)) {
        HelperReport("%s", sWhy.c_str());
        return EX_NOPERM;
    }
    return NSApplicationMain(argc, argv, eMode == LHelperMode::Serve ? MakeServingHelper : MakeLoginHelper);
}
