// The commands of loginhelperctl.
//
// Thread-safety: none; the main thread.
#pragma once

#include "Options.h"
#include "Report.h"

// Does what the options ask for and tells the outcome. False when there is no such command.
bool RunCommand(const Options& options, Report& report);
