#include "zip/internal/LZipCommand.h"

#include <cstring>
#include <port/shell.h>
#include <sys/wait.h>

#include "strings/LStringFormat.h"
#include "threads/LProcessInterface.h"

namespace {

// Where the tools look for options besides the command line.
constexpr const char* kOptionVariables[] = {"ZIP",     "ZIPOPT",     "UNZIP", "UNZIPOPT",
                                            "ZIPINFO", "ZIPINFOOPT", nullptr};

constexpr char kSpecialInQuotes[] = "\"`$\\";
constexpr char kSpecialUnquoted[] = " \t\"`$\\'|&;<>()*?[]{}#!~";
constexpr char kPatternCharacters[] = "*?[";

constexpr unsigned int kPause = 50; // milliseconds, where the end cannot be waited for
constexpr unsigned int kLook = 100; // milliseconds between two looks at what was written

// strchr would find the terminator too.
bool IsOneOf(char character, const char* szCharacters) {
    return character != '\0' && strchr(szCharacters, character) != nullptr;
}

// Writes at the end of a line, and ends it when it is destroyed.
class LineWriter {
public:
    explicit LineWriter(LStringLongTemplate<char>& line) : sLine(line), writer(line) {}
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;
    ~LineWriter() { sLine.SetLength(writer.GetCount()); }

    void Add(const char* szText) { tplstrcpy(writer, szText); }
    void AddInQuotes(char character) {
        if (IsOneOf(character, kSpecialInQuotes))
            writer.AddChar('\\');
        writer.AddChar(character);
    }
    void AddInQuotes(const char* szText) {
        for (; *szText != '\0'; ++szText)
            AddInQuotes(*szText);
    }
    // A line feed cannot be escaped outside of quotes.
    void AddUnquoted(char character) {
        if (character == '\n')
            return Add("\"\n\"");
        if (IsOneOf(character, kSpecialUnquoted))
            writer.AddChar('\\');
        writer.AddChar(character);
    }

private:
    LStringLongTemplate<char>& sLine;
    LStringLongTemplateAppender<char> writer;
};

void AddAsDirectory(LineWriter& line, const char* szPath) {
    if (*szPath == '-')
        line.Add("./");
}

// Waits for the command's end, or so long; true when it is to be ended before.
bool IsToStopWhile(const port::ShellCommand& command, LProcessInterface& process, unsigned int nTimeout) {
    const int nEnd = command.endDescriptor();
    if (!LSignalObjectRef::FitsSelect(nEnd))
        return process.ProcessWait(kPause);
    return process.ProcessWaitSignal(LSignalObjectRef(nEnd, -1), nTimeout) == LProcessWaitStopped;
}

} // namespace

void LZipCommand::AddOption(const char* szOption) {
    sLine.Append(" ");
    sLine.Append(szOption);
}

void LZipCommand::AddPath(const char* szPath) {
    LineWriter line(sLine);
    line.Add(" \"");
    AddAsDirectory(line, szPath);
    line.AddInQuotes(szPath);
    line.Add("\"");
}

void LZipCommand::AddEntry(const char* szEntry, const char* szEnd) {
    LineWriter line(sLine);
    line.Add(" \"");
    if (*szEntry == '-')
        line.AddInQuotes('\\');
    for (; *szEntry != '\0'; ++szEntry) {
        if (*szEntry == '\\' || IsOneOf(*szEntry, kPatternCharacters))
            line.AddInQuotes('\\');
        line.AddInQuotes(*szEntry);
    }
    line.Add(szEnd);
    line.Add("\"");
}

// A path without pattern characters is taken as it is, backslashes too. With one anywhere, its last component
// is matched against the folder that holds it.
void LZipCommand::AddArchiveToRead(const char* szPath) {
    if (strpbrk(szPath, kPatternCharacters) == nullptr)
        return AddPath(szPath);
    const char* pSlash = strrchr(szPath, '/');
    const char* pName = pSlash == nullptr ? szPath : pSlash + 1;
    LineWriter line(sLine);
    line.Add(" \"");
    AddAsDirectory(line, szPath);
    for (; szPath != pName; ++szPath)
        line.AddInQuotes(*szPath);
    for (; *pName != '\0'; ++pName) {
        const bool bPattern = IsOneOf(*pName, kPatternCharacters);
        if (bPattern)
            line.Add("[");
        else if (*pName == '\\')
            line.AddInQuotes('\\');
        line.AddInQuotes(*pName);
        if (bPattern)
            line.Add("]");
    }
    line.Add("\"");
}

void LZipCommand::AddExclusionList(const char* szPath) {
    LineWriter line(sLine);
    line.Add(" -x@");
    for (; *szPath != '\0'; ++szPath)
        line.AddUnquoted(*szPath);
}

bool LZipCommand::Run(LProcessInterface& process, unsigned long long qwMostWritten) const {
    port::ShellCommand command;
    if (!command.start(LUTF8StringLongRef(sLine), kOptionVariables))
        return false;
    const unsigned int nTimeout = qwMostWritten == kNoLimit ? LNoTimeLimit : kLook;
    while (!command.hasEnded())
        if (IsToStopWhile(command, process, nTimeout) || command.written() > qwMostWritten)
            command.end();
    const bool bTooMuch = command.written() > qwMostWritten;
    const int nStatus = command.wait();
    return nStatus != -1 && WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0 && !bTooMuch;
}
