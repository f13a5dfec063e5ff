// What the user database says of users and groups.
//
// Thread-safety: reentrant; blocks with the database. None when the database does not know them, or cannot be asked.
#pragma once

#include <grp.h>
#include <port/Unique.h>
#include <pwd.h>

#pragma GCC visibility push(default)

namespace port {

// An entry of the database, or none, with the memory that its texts are in. Its name, its home and
// its members are not null.
template <typename Entry>
class DatabaseEntry {
public:
    DatabaseEntry() = default;
    DatabaseEntry(const Entry& entry, Unique<char[]> texts) : entry_(entry), texts_(std::move(texts)) {}

    explicit operator bool() const { return static_cast<bool>(texts_); }
    const Entry* operator->() const { return &entry_; }

private:
    Entry entry_{};
    Unique<char[]> texts_;
};

using UserEntry = DatabaseEntry<passwd>;
using GroupEntry = DatabaseEntry<group>; // its members: but those whose primary group it is

UserEntry userEntry(uid_t user);
UserEntry userNamed(const char* name);
GroupEntry groupEntry(gid_t group);

} // namespace port

#pragma GCC visibility pop
