// What a file carries beside its data.
//
// Thread-safety: reentrant.
#pragma once

namespace port {

// Gives an open file the users' extended attributes and the access list of another one. What the file system refuses
// of these is left out: a file without them is better than none.
void copyAttributes(int from, int to);

} // namespace port
