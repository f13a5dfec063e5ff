// The walk through the process table.
//
// Thread-safety: reentrant.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstring>
#include <dirent.h>
#include <iterator>
#include <memory>
#include <sys/types.h>
#include <vector>

namespace port {

// Visits the folders of all processes until `visit(table, name, process)` answers false; `table` is a descriptor
// of the folder they stand in. From the highest id down: who is looked for came last, as a rule, and the kernel's
// own threads came first. False with errno when the table cannot be read.
template <typename Visit>
bool forEachProcess(Visit visit) {
    const std::unique_ptr<DIR, int (*)(DIR*)> table(::opendir("/proc"), ::closedir);
    if (table == nullptr)
        return false;
    std::vector<pid_t> processes;
    while (const dirent* entry = ::readdir(table.get())) {
        pid_t process = 0;
        const char* const end = entry->d_name + std::strlen(entry->d_name);
        if (std::from_chars(entry->d_name, end, process).ptr == end)
            processes.push_back(process);
    }
    std::find_if_not(processes.rbegin(), processes.rend(), [&](pid_t process) {
        char name[16];
        *std::to_chars(std::begin(name), std::end(name), process).ptr = '\0';
        return visit(::dirfd(table.get()), name, process);
    });
    return true;
}

} // namespace port
