// Who has the helper's service now, as the doctor tells it.
//
// Thread-safety: none; the main thread.
#pragma once

#include "Options.h"
#include "Report.h"

// Adds the folder of the sockets, the helper that runs and the service to the report, with what is wrong there.
// Asks the service whether it answers, and waits for that as long as the options say.
void ReportService(const Options& options, Report& report);
