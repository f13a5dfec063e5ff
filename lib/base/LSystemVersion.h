// Is the system at least of a given version?
//
// Thread-safety: safe on any thread. The answers are computed at the first call and kept while the process
// runs. Each compares the low bytes of the system's major and minor version, unsigned; a version that the
// system does not tell reads 0 and gives false. Nothing blocks.
#pragma once

bool IsOSMacLeopardOrLater();     // 10.5
bool IsOSMacSnowLeopardOrLater(); // 10.6
bool IsOSMacLionOrLater();        // 10.7
