#include <AppKit/AppKit.h>

#include <cstdlib>
#include <exception>

#include "HelperReport.h"
#include "LLoginHelper.h"
#include "debug/LDebugSignals.h" // brings the library's signal handlers

// The runtime's own would print the exception's type, and brings a demangler for that.
void __gnu_cxx::__verbose_terminate_handler() {
    HelperReport("ended by an exception");
    std::abort();
}

int main(int argc, char* argv[]) {
    return NSApplicationMain(argc, argv, []() -> NSApplicationDelegate* { return new LLoginHelper; });
}
