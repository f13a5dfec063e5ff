// The helper's command line.
//
// Thread-safety: none; the start of the process.
#pragma once

enum class LHelperMode {
    Login, // no argument: what a login starts
    Serve, // --serve: what a question starts
};

// What a command line with arguments asks for. Answers --help and --version itself and ends the process, with
// status 0 or, when nobody could be told, 74; ends it with a line and status 64 for any other argument.
LHelperMode ParseHelperArguments(int argc, char* argv[]);
