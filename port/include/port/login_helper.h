// What is so of a helper application that <ServiceManagement/ServiceManagement.h> switches on and off. The platform's
// own question, a dictionary of each job that runs, knows neither an entry that the user has switched off nor why a
// helper cannot be switched on; so this is a question of the port's.
//
// Thread-safety: reentrant; the environment must not change meanwhile. Blocks with the file system and changes
// nothing.
#pragma once

#include <port/login_items.h>
#include <sys/types.h>

#pragma GCC visibility push(default)

struct port_login_helper_t {
    // The user's own entry: ON or LEFT when the helper is registered, MASKED or OFF when the user has switched it
    // off. What is installed for all users is not looked at.
    port_login_item_t entry;
    char bundle
        [PORT_LOGIN_ITEM_PATH_SIZE]; // that would be registered, without links; empty when there is none
    // Why it cannot be registered, one line for people, and the errno value; empty and 0 when it can.
    char obstacle[2 * PORT_LOGIN_ITEM_PATH_SIZE];
    int error;
    // A helper of that identifier that runs in this login (with this process's runtime folder), one that serves
    // before others, and its bundle; 0 and empty when none runs.
    pid_t process;
    char running[PORT_LOGIN_ITEM_PATH_SIZE];
    // Whether somebody listens under the identifier's service name: that helper, or whoever will start one.
    bool serves;
};

// Of the bundle identifier, as this process would register it. For what is no identifier: EINVAL as obstacle, and
// nothing else.
void port_login_helper(const char* identifier, port_login_helper_t* helper);

// Whether this process was started because its login item was switched on, and not by a login.
bool port_started_by_enabling();

#pragma GCC visibility pop
