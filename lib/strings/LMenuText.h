// Texts of menus: mnemonic marks ("&File", "Open(&O)") and the shortcut behind a tab ("Save\tCmd+S").
//
// Thread-safety: reentrant. Nothing fails. Texts are handled byte by byte. `out` holds strlen(text) + 1 bytes
// and may be the text itself; a null text is read as empty.
#pragma once

#pragma GCC visibility push(default)

// Copies the text without its marks: a single "&" goes, "&&" becomes one "&".
void LStripAmpersand(char* out, const char* text);

// Copies the text without marks in brackets: "(&" goes with everything up to the next ")", or up to the end
// when there is none. An "&" that follows no "(" stays.
void LStripJPStyleAmpersand(char* out, const char* text);

// Cuts the text, not null, at its first tab. Returns where the tab was, now the terminator; null without one.
char* LStripFromFirstTabToEnd(char* text);

// LStripAmpersand into out, then LStripFromFirstTabToEnd of out, whose result it returns.
char* LPrepareForMenuItem(char* out, const char* text);

// LStripAmpersand into out.
void LPrepareForDisplay(char* out, const char* text);

#pragma GCC visibility pop
