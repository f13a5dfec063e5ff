// What the next login would do, told from the helper's settings, the stored bundle and the running programs.
//
// Thread-safety: none; the main thread.
#pragma once

#include "Options.h"
#include "Report.h"

// Looks without changing anything.
void Doctor(const Options& options, Report& report);
