// What the user database says of users and groups.
//
// Thread-safety: reentrant; blocks with the database. None when the database does not know them, or cannot be asked.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#pragma GCC visibility push(default)

namespace port {

struct UserEntry {
    std::string name;
    uid_t user;
    gid_t group; // the primary one
    std::string home;
};

struct GroupEntry {
    std::string name;
    std::vector<std::string> members; // but those whose primary group it is
};

std::optional<UserEntry> userEntry(uid_t user);
std::optional<UserEntry> userNamed(const char* name);
std::optional<GroupEntry> groupEntry(gid_t group);

} // namespace port

#pragma GCC visibility pop
