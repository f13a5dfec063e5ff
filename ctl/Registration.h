// The helper as a login item of this user: the commands that switch it on and off, and what reports tell of it.
//
// Thread-safety: none; the main thread.
#pragma once

#include "Options.h"
#include "Report.h"

// Registers the helper that is registered already or installed beside this program, and starts it; see
// <ServiceManagement/ServiceManagement.h>.
void Register(const Options& options, Report& report);

// Takes the user's entry and the helper's settings away and ends the helper.
void Unregister(const Options& options, Report& report);

// Adds the user's entry and the helper's bundle to the report. Looks without changing anything.
void ReportRegistration(Report& report);
