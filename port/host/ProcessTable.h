// The walk through the process table.
//
// Thread-safety: reentrant.
#pragma once

#include <charconv>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/types.h>

namespace port {

// Visits the folders of all processes until `visit(table, name, process)` answers false; `table` is a descriptor
// of the folder they stand in. False with errno when the table cannot be read.
template <typename Visit>
bool forEachProcess(Visit visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> table(::opendir("/proc"), ::closedir);
    if (table == nullptr)
        return false;
    while (const dirent* entry = ::readdir(table.get())) {
        pid_t process = 0;
        const char* const end = entry->d_name + std::strlen(entry->d_name);
        if (std::from_chars(entry->d_name, end, process).ptr == end &&
            !visit(::dirfd(table.get()), entry->d_name, process))
            break;
    }
    return true;
}

} // namespace port
