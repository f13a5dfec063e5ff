// What the next login will do and what is so now, short or with all that is wrong, told from files, settings and
// running programs.
//
// Thread-safety: none; the main thread.
#pragma once

#include "Options.h"
#include "Report.h"

// Looks without changing anything, and adds each thing that is wrong with the one thing to do about it.
void Doctor(const Options& options, Report& report);

// Tells what is so, without looking for faults. The exit status is 0 when the next login will launch the application,
// else 1.
void Status(const Options& options, Report& report);
