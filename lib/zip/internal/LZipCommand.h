// A command line for one of the system's zip tools, put together piece by piece. What a path or a name
// contains never changes the command: the shell and the tool take it for that path or name and nothing else.
//
// Thread-safety: none; the owner guards it. Pieces are borrowed for the call, may be of any length, and are
// not null.
//
// A name that means nothing special to anybody stands in the line as it is.
#pragma once

#include <cstddef>

#include "strings/LString.h"

class LProcessInterface;

class LZipCommand {
public:
    explicit LZipCommand(const char* szTool) { Begin(szTool); }

    // Begins the line anew.
    void Begin(const char* szTool) { sLine = szTool; }

    // An option, as it is.
    void AddOption(const char* szOption);
    // A path, quoted; one that begins with "-" has "./" in front.
    void AddPath(const char* szPath);
    // The name of an entry in an archive, quoted; characters that the tools take for patterns, and a "-" in
    // front, are escaped. szEnd, which may hold patterns, follows inside the quotes.
    void AddEntry(const char* szEntry, const char* szEnd = "");
    // The archive that is read by unzip, quoted; that tool takes this path for a pattern too, with rules of its
    // own.
    void AddArchiveToRead(const char* szPath);
    // The option that names a file with exclusion patterns. The path is not quoted, but escaped where needed.
    void AddExclusionList(const char* szPath);
    // A blank at the end of the line.
    void AddBlank() { sLine.Append(" "); }

    // In bytes.
    std::size_t GetLength() const { return sLine.GetLength(); }

    static constexpr unsigned long long kNoLimit = ~0ULL;

    // Runs the line; true when the tool succeeded. Options that the tools would take from the environment have
    // no effect, and a tool that asks something gets no answer. Blocks until the tool ends; a stop request ends
    // it, as the end of this process does. A tool that writes more bytes than it may is ended within a tenth of
    // a second, and has failed.
    bool Run(LProcessInterface& process, unsigned long long qwMostWritten) const;

private:
    LStringLongTemplate<char> sLine;
};
