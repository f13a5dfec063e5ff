// What the user database says of a user.
//
// Thread-safety: reentrant; blocks with the database.
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

namespace port {

struct UserEntry {
    std::string name;
    gid_t group;
    std::string home;
};

// None when the database does not know the user, or cannot be asked.
std::optional<UserEntry> userEntry(uid_t user);

} // namespace port
