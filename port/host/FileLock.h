// Waiting for the lock of a file, with an end.
//
// Thread-safety: reentrant.
#pragma once

#include <chrono>

namespace port {

// Takes the exclusive lock (`flock`) of an open file. Looks again and again, since the system has no wait with an
// end: a holder that is stopped must not stop us. False with errno: EWOULDBLOCK when the time is over.
bool lockFile(int fd, std::chrono::milliseconds patience);

} // namespace port
