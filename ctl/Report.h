// What a command found out: its exit status, a message for people, and named facts; printed as text or JSON.
//
// Thread-safety: none; the main thread.
#pragma once

#include <string>
#include <vector>

class Report {
public:
    explicit Report(const char* szForCommand) : szCommand(szForCommand) {}

    // A fact has a key for JSON and a label for people. The text for people of a flag is one of two words.
    void AddFlag(const char* szKey, const char* szLabel, bool bValue, const char* szTrue,
                 const char* szFalse);
    // Printed as it is; in JSON escaped, with U+FFFD for what is no UTF-8.
    void AddText(const char* szKey, const char* szLabel, const std::string& szText);
    // One of several outcomes: a word for programs, a text for people.
    void AddChoice(const char* szKey, const char* szLabel, const char* szWord, const std::string& szText);
    // A text; an empty one is a fact that does not exist: null in JSON, "none" for people.
    void AddOptionalText(const char* szKey, const char* szLabel, const std::string& szText);

    // What is wrong, and the one thing to do about it: a command, or a sentence without its end. They are dropped
    // until `BeginFindings` is called; in JSON they are one array.
    void BeginFindings() { bFindings = true; }
    void AddFinding(std::string sProblem, std::string sNextStep) {
        if (bFindings)
            findings.push_back({std::move(sProblem), std::move(sNextStep)});
    }

    // `nExitStatus` is one of <sysexits.h>, or 1 for "no". The message is a sentence without its end; empty: none.
    void Fail(int nExitStatus, std::string szReason);
    // A message that leaves the status as it is.
    void Warn(std::string szWarning) { szMessage = std::move(szWarning); }
    int GetStatus() const { return nStatus; }

    // Facts go to standard output, the message to standard error; as JSON everything is one object on
    // standard output. False when the output could not be written.
    bool Print(bool bJSON) const;

private:
    struct Fact {
        const char* szKey;
        const char* szLabel;
        std::string szText;
        std::string szJSON;
    };
    struct Finding {
        std::string sProblem;
        std::string sNextStep;
    };
    std::string _ToJSON() const;
    std::string _FindingsToJSON() const;

    const char* szCommand;
    int nStatus = 0;
    std::string szMessage;
    std::vector<Fact> facts;
    bool bFindings = false;
    std::vector<Finding> findings;
};

// A JSON string, quotes included.
std::string QuoteJSON(const std::string& szText);

// A word of a shell's command line: in quotes, unless it needs none.
std::string QuoteForShell(const std::string& szText);
