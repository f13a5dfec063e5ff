// Where an archive is extracted to, so that nothing is written through a link to a folder that was there before:
// the tool follows those. A destination without such links is the tool's own. Into one that has some, or that
// is too large to be looked through, the tool does not write: it gets a private folder in it, from which the files
// are then moved by descriptors.
//
// Thread-safety: none; an object belongs to one extraction. Nobody else changes the destination meanwhile.
// Blocks with the file system.
#pragma once

#include <string>

class LZipDestination {
public:
    // Looks at the folder, which need not exist.
    explicit LZipDestination(const char* szFolder);
    LZipDestination(const LZipDestination&) = delete;
    LZipDestination& operator=(const LZipDestination&) = delete;
    // Removes the private folder with all that was not moved.
    ~LZipDestination();

    // Where the tool is to write; empty when a private folder could not be made.
    const char* GetPath() const { return sPath.c_str(); }
    // Moves what the tool made to its place, over the files that are there. When there is an entry below a link,
    // nothing is moved. False then, and when something could not be moved.
    bool MoveIn() const;

private:
    std::string sFolder;
    std::string sPath;
};
