// Who has the helper's service now, as the doctor tells it.
//
// Thread-safety: none; the main thread.
#pragma once

#include "Options.h"
#include "Report.h"

// Adds the helper that runs and the service to the report, with what is wrong there. Asks the service whether it
// answers, and waits for that as long as the options say.
void ReportServer(const Options& options, Report& report);

// The same behind the folder of the sockets.
void ReportService(const Options& options, Report& report);
