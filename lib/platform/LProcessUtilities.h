// The start of a program, the user that it runs as, and the processes of the system.
//
// Thread-safety: the command line, the locale, the limits and the switching of users belong to the process:
// they are for its start, on the main thread. The questions may be asked from any thread. Looking up users,
// groups and processes blocks as long as the system takes; LGetProcessUid also waits, for about a
// second at most, for a lock that all processes of the machine share.
#pragma once

#include <port/Atomic.h>
#include <port/process.h>

#include "debug/LDebugSignals.h"

#pragma GCC visibility push(default)

constexpr int LMaximumNumberOfOpenFiles = 1024; // the soft limit that a program of the library gets

// The program's arguments as the library keeps them: pointers to the texts that main was given, and a null
// entry behind them. 0 and null before they are copied.
inline namespace lfoundation {
extern int gargc;
extern char** gargv;
} // namespace lfoundation

// What LGetProcessUid found; negative: nothing yet.
inline namespace lfoundation {
extern port::Atomic<int> gGuiUid;
}

// --- Start ----------------------------------------------------------------------------------------------

// Called once, first thing in main: registers the thread as "MAIN" for problem reports, sets the
// file-creation mask to 0, copies the arguments, sets the locale and the limit of open files. Always true.
bool LUnixAppInitCommon(int argc, char** argv);

// Copies the pointers, but for a first argument that begins with "-psn", which the system adds when it
// launches a program. A second call replaces the array. An argc below 1 gives no arguments.
void LUnixAppCopyCommandLineArguments(int argc, char** argv);

// Takes an argument out of gargv; an index outside it changes nothing.
void LRemoveCommandLineArgument(int index);

// Sets the soft limit of open files to LMaximumNumberOfOpenFiles, lowering a higher one. The result of
// setting it: 0, or -1 with errno, as when the hard limit is lower.
int LSetMaximumNumberOfOpenFiles();

// The first call sets the locale of the standard library, all of its categories, to the user's: the first
// five characters of the current locale's identifier, else of the preference "AppleLocale", else what the
// environment says. One that the system does not have changes nothing. Returns the name that the standard
// library then has for the category (0: all of them), never null, the library's; later calls return the same
// text whatever they ask for.
char* LGetLocale(int category);

// --- User -----------------------------------------------------------------------------------------------

// Also true for anybody with USER=root in the environment.
bool LIsUserRoot();

// Root, or a member of a group called "admin" (the supplementary groups count).
bool LIsUserAdministrator();
bool LIsUserRunningAsAdministrator(); // the same

// Sets the user id to that of the user in LOGNAME, else USER. False when there is no such user or the process
// may not. From root there is no way back: all ids of the process change, and its groups become those of the user.
// After a failure there the groups may be the user's already: do not go on as root.
bool LSwitchToUser();
bool LSwitchToRoot();

// --- Processes ------------------------------------------------------------------------------------------

// The process table. The number of entries in *result, which the caller frees with free(); 0 and null when it
// cannot be read.
unsigned long LGetBSDProcessList(kinfo_proc** result);

// In spite of their names the following two tell a process id: that of the first process whose command name
// is the name, ASCII letters of both cases being the same; -1 when there is none. A command name has at most
// MAXCOMLEN characters, so no longer name is found.
int LGetBSDProcessUid(const char* name);

// Once a process was found its id is the answer for ever, whatever name is asked for.
int LGetProcessUid(const char* name);

#pragma GCC visibility pop
