// Where this user's files are.
//
// Thread-safety: safe as long as nobody changes the environment.
#pragma once

#include <string>

namespace port {

// CFFIXED_USER_HOME, else HOME, else the entry of the user database; empty when there is none. Only absolute
// paths count.
std::string homeFolder();

// $XDG_CONFIG_HOME, else .config in the home folder; empty when there is neither.
std::string configurationFolder();

} // namespace port
