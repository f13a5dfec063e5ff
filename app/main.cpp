#include <AppKit/AppKit.h>

#include <exception>
#include <port/heap.h>
#include <port/no_memory.h>
#include <string>
#include <sysexits.h>

#include "ForeignEnvironment.h"
#include "HelperArguments.h"
#include "HelperReport.h"
#include "LServingHelper.h"
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

} // namespace

int main(int argc, char* argv[]) {
    port_share_heap();
    // A login has none, and need not bring their reader to memory.
    const LHelperMode eMode = argc > 1 ? ParseHelperArguments(argc, argv) : LHelperMode::Login;
    if (std::string sWhy; FindForeignFolder(sWhy)) {
        HelperReport("%s", sWhy.c_str());
        return EX_NOPERM;
    }
    return NSApplicationMain(argc, argv, eMode == LHelperMode::Serve ? MakeServingHelper : MakeLoginHelper);
}
