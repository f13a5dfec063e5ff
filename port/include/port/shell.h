// Shell command lines in an environment of their own.
//
// Thread-safety: reentrant, as long as nobody changes the environment meanwhile.
#pragma once

// `system` for a command line whose environment lacks the variables named, a list that ends with null; null
// takes none away. The names are those of variables of the shell, and not user input. Results as `system`.
int port_system(const char* commandLine, const char* const* withoutVariables);
