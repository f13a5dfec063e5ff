// The command line of loginhelperctl.
//
// Thread-safety: none; the main thread.
#pragma once

#include <string>

#include "LoginHelperContract.h"

struct Options {
    const char* szService = LHelperServiceName;
    const char* szBundle = LMainAppDefaultPath;
    unsigned dwTimeout = 2000; // milliseconds
    bool bJSON = false;
    const char* szCommand = nullptr;
    const char* szPath = nullptr; // the command's argument, for `enable`
};

// Reads the command line; options may stand anywhere. Prints help, version or what is wrong and ends the
// process when there is nothing to do.
Options ParseOptions(int argc, char* argv[]);

// Tells what is wrong with the command line, as a JSON object where that is asked for, and ends the process.
[[noreturn]] void EndWithUsage(bool bJSON, const std::string& sReason);
