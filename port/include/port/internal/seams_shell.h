// A seam for tests: who runs shell command lines. Nothing here is called by the library or the helper.
#pragma once

// Called by `ShellCommand::start` in place of the shell, with the command line as it was given; what it
// returns is the status with which the command ended. Null returns to the shell. Set while no other thread
// runs commands.
using port_shell_hook = int (*)(const char* commandLine);
void port_set_shell_hook(port_shell_hook hook);
