// The command line of loginhelperctl.
//
// Thread-safety: none; the main thread.
#pragma once

#include "LoginHelperContract.h"

struct Options {
    const char* szService = LHelperServiceName;
    const char* szBundle = DefaultBundle;
    unsigned dwTimeout = 2000; // milliseconds
    bool bJSON = false;
    const char* szCommand = nullptr;
    const char* szPath = nullptr; // the command's argument, for `enable`

    static constexpr const char* DefaultBundle = "/Applications/Zubeq Free.app";
};

// Reads the command line; options may stand anywhere. Prints help, version or what is wrong and ends the
// process when there is nothing to do.
Options ParseOptions(int argc, char* argv[]);
