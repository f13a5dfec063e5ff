// Autostart entries of the session, for who knows which file counts; <port/login_items.h> finds the file first.
//
// Thread-safety: reentrant; reads the environment. Blocks with the file system.
#pragma once

#include <port/login_items.h>
#include <string>

namespace port {

// The folder of the user's own entries; empty when there is no home folder.
std::string userEntryFolder();

// The entry at that path, which may be missing. 0, or the errno value with which it cannot be read: it then passes for
// one that starts nothing.
int lookAtEntry(const std::string& path, port_login_item_t& item);

} // namespace port
