// The program of a process, as its link in the process table names it.
//
// Thread-safety: reentrant.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace port {

// The path behind a link below `folder` (a descriptor, or AT_FDCWD), stored in `buffer`, without the mark that
// the system sets behind the name of a program that was deleted or replaced. Empty when the link cannot be
// read or the path fills the buffer.
std::string_view readExecutableLink(int folder, const char* link, std::span<char> buffer);

// The same of a path.
std::string readExecutableLink(const char* link);

// The program of this process; empty where there is no process table.
std::string ownExecutable();

// The program's file name, whatever name the process was started under.
std::string ownProgramName();

} // namespace port
