// Root in a user's environment: what it writes there would be root's, and the user's own programs could no
// longer change it.
//
// Thread-safety: any thread, as long as nobody changes the environment.
#pragma once

#include <string>

// True when this process is root's and a folder in which it would keep files, by its environment, is somebody
// else's; sWhy is then one line for people, without its end. A folder that cannot be looked at counts as
// root's. Blocks on the disk.
bool FindForeignFolder(std::string& sWhy);
