// What is started at login, read from the files of the session (desktop entries) and of the user's service
// manager (units), neither of which has to run: for programs that tell a person why something is not started.
//
// Thread-safety: reentrant; the environment must not change meanwhile. Blocks with the file system and changes
// nothing. Texts longer than their buffers are cut.
#pragma once

#include <cstddef>

#pragma GCC visibility push(default)

constexpr std::size_t PORT_LOGIN_ITEM_PATH_SIZE = 4096; // bytes, terminator included

enum port_login_item_state_t {
    PORT_LOGIN_ITEM_MISSING, // no file of that name
    PORT_LOGIN_ITEM_MASKED,  // a file says that it must not be started
    PORT_LOGIN_ITEM_OFF,     // there, but nothing starts it
    PORT_LOGIN_ITEM_LEFT,    // an entry of a session that leaves it to the service manager, which runs
    PORT_LOGIN_ITEM_ON,
};

struct port_login_item_t {
    port_login_item_state_t state;
    char path[PORT_LOGIN_ITEM_PATH_SIZE];    // the file that counts; empty for a missing one
    char program[PORT_LOGIN_ITEM_PATH_SIZE]; // what it starts, as it is written there; empty: it tells none
    const char* line; // what masks an entry or switches it off, such as "Hidden=true"; or null
};

// The autostart entry of that file name, such as "x.desktop": the first one in $XDG_CONFIG_HOME/autostart and
// the folders of $XDG_CONFIG_DIRS. "Hidden" masks it, as one that starts nothing does;
// "X-GNOME-Autostart-enabled=false" or "X-MATE-Autostart-enabled=false" switches it off, and so do "OnlyShowIn" and
// "NotShowIn" in the session of another desktop; "X-systemd-skip" leaves it to the service manager.
void port_session_entry(const char* name, port_login_item_t* item);

// The unit of that file name, such as "x.service": the first one in the folders of user units. A link to the
// empty device masks it, as an empty file does; it is on when a unit of any of these folders wants or requires it.
void port_user_unit(const char* name, port_login_item_t* item);

// Whether this system has a service manager that starts units: without one they count for nothing.
bool port_service_manager_runs();

#pragma GCC visibility pop
