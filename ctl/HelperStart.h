// What starts the helper at login, as the doctor tells it.
//
// Thread-safety: none; the main thread.
#pragma once

#include "Report.h"

// Whether something starts the helper at the next login. Nobody knows of what kind that session will be.
enum class HelperStart {
    Never,
    Always,
    ManagedSessions, // when the service manager runs the session
    OtherSessions,   // when it does not
};

// Adds the session's entry, the unit and the helper that they start to the report, with what is wrong there. Looks
// without changing anything.
HelperStart ReportHelperStart(Report& report);
