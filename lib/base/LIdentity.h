// Who this program is to the library, which keeps some things of its own under a name: programs of one name share them.
//
// Thread-safety: none; the start of the program, before it calls anything else of the library.
#pragma once

#pragma GCC visibility push(default)

// `szName` is what the folder in the user's data folder is called, and is in the name of the marker of a run;
// "loginhelper" before. `szIdentifier` is the application whose preference "AppleLocale" counts before that of all
// applications; "com.brelvanic.loginhelper" before. Both texts are borrowed until the process ends. False, and nothing
// has changed, when the name cannot be that of a file (empty, ".", "..", with "/" or of more than 200 bytes) or the
// identifier is empty.
bool LSetIdentity(const char* szName, const char* szIdentifier);

#pragma GCC visibility pop
