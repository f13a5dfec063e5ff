// Conversions between seconds since 1970-01-01 00:00:00 UTC and the fields of the local time zone.
//
// Thread-safety: any thread, as long as nobody changes the environment meanwhile.
//
// The zone is that of TZ, read anew at each call. Without TZ it is the machine's, whose file
// port_localtime_r looks at at most once a second.
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
