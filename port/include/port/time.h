// Conversions between seconds since 1970-01-01 00:00:00 UTC and the fields of the local time zone.
//
// Thread-safety: any thread, as long as nobody changes the environment meanwhile.
//
// The zone is that of TZ as it is at the call, whatever the size of the environment; without TZ it is the machine's.
// What is seen a second later at most: a change of the machine's zone file, and a TZ among so many variables made anew
// that the environment looks as before at its beginning and where TZ was, or at its end.
#pragma once

#include <ctime>

#pragma GCC visibility push(default)

// The local fields of a time. Returns `result`, or null with errno when the year does not fit: the fields are
// then not defined.
tm* port_localtime_r(const std::time_t* time, tm* result);

// The time of local fields, which need not be in their ranges and are made so. The daylight-saving flag says
// how an hour that occurs twice or never is meant, a negative one leaves that to the system. -1 when there is
// no such time, and also for the second before 1970.
std::time_t port_mktime(tm* fields);

#pragma GCC visibility pop
