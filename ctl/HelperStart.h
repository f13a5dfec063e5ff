// What starts the helper at login, as the doctor tells it.
//
// Thread-safety: none; the main thread.
#pragma once

#include "Report.h"

// Adds the session's entry, the unit and the helper that they start to the report, with what is wrong there. True
// when one of them starts the helper at the next login. Looks without changing anything.
bool ReportHelperStart(Report& report);
