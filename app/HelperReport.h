// What the helper says: one line on standard error for each decision.
//
// Thread-safety: any thread; a line is written at once.
#pragma once

// The text, formatted as printf does, behind the helper's name and ": ". Cut at 8191 bytes; control characters become
// "?".
[[gnu::format(printf, 1, 2)]] void HelperReport(const char* szFormat, ...);
