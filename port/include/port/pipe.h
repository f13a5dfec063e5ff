// Pipes, and streams from and to commands, whose descriptors are closed on exec from their first moment.
//
// Thread-safety: reentrant.
#pragma once

#include <cstdio>

// `pipe`, with O_NONBLOCK or nothing as flags for both ends. 0, or -1 with errno and the ends as they were.
int port_pipe(int (&ends)[2], int flags = 0);

// `popen` in the mode "r" or "w"; `pclose` ends it. Null with errno.
FILE* port_popen(const char* commandLine, const char* mode);
