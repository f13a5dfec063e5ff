#include "Report.h"

#include <cstdint>
#include <cstdio>

#include "LoginHelperContract.h"

namespace {

struct LeadByte {
    unsigned char cMask;
    unsigned char cValue;
    std::uint32_t nLowest; // below it the form is overlong
};
constexpr LeadByte kLeadBytes[] = {
    {0x80, 0x00, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};

// The bytes of the well-formed character at that place; 0 when there is none.
std::size_t CharacterLength(const std::string& szText, std::size_t nAt) {
    const auto byteAt = [&](std::size_t n) { return static_cast<unsigned char>(szText[n]); };
    for (std::size_t nMore = 0; nMore < std::size(kLeadBytes); nMore++) {
        const LeadByte& lead = kLeadBytes[nMore];
        if ((byteAt(nAt) & lead.cMask) != lead.cValue)
            continue;
        if (nAt + nMore >= szText.size())
            return 0;
        std::uint32_t nCode = byteAt(nAt) & ~std::uint32_t{lead.cMask};
        for (std::size_t n = nAt + 1; n <= nAt + nMore; n++) {
            if ((byteAt(n) & 0xC0) != 0x80)
                return 0;
            nCode = (nCode << 6) | (byteAt(n) & 0x3F);
        }
        const bool bSurrogate = nCode >= 0xD800 && nCode <= 0xDFFF;
        return nCode < lead.nLowest || nCode > 0x10FFFF || bSurrogate ? 0 : nMore + 1;
    }
    return 0;
}

} // namespace

std::string QuoteJSON(const std::string& szText) {
    std::string szOut = "\"";
    for (std::size_t n = 0; n < szText.size();) {
        const std::size_t nLength = CharacterLength(szText, n);
        const char c = szText[n];
        if (nLength == 0) {
            szOut += "\\ufffd";
        } else if (c == '"' || c == '\\') {
            szOut += '\\';
            szOut += c;
        } else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            char szEscape[8];
            snprintf(szEscape, sizeof(szEscape), "\\u%04x", static_cast<unsigned>(c));
            szOut += szEscape;
        } else {
            szOut.append(szText, n, nLength);
        }
        n += nLength == 0 ? 1 : nLength;
    }
    return szOut + '"';
}

std::string QuoteForShell(const std::string& szText) {
    if (!szText.empty() && szText.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                                    "0123456789/._-+:@%,") == szText.npos)
        return szText;
    std::string szOut = "'";
    for (const char c : szText)
        szOut += c == '\'' ? "'\\''" : std::string(1, c);
    return szOut + "'";
}

void Report::AddFlag(const char* szKey, const char* szLabel, bool bValue, const char* szTrue,
                     const char* szFalse) {
    facts.push_back({szKey, szLabel, bValue ? szTrue : szFalse, bValue ? "true" : "false"});
}

void Report::AddText(const char* szKey, const char* szLabel, const std::string& szText) {
    facts.push_back({szKey, szLabel, szText, QuoteJSON(szText)});
}

void Report::AddChoice(const char* szKey, const char* szLabel, const char* szWord,
                       const std::string& szText) {
    facts.push_back({szKey, szLabel, szText, QuoteJSON(szWord)});
}

void Report::AddOptionalText(const char* szKey, const char* szLabel, const std::string& szText) {
    if (szText.empty())
        facts.push_back({szKey, szLabel, "none", "null"});
    else
        AddText(szKey, szLabel, szText);
}

void Report::Fail(int nExitStatus, std::string szReason) {
    nStatus = nExitStatus;
    szMessage = std::move(szReason);
}

std::string Report::_FindingsToJSON() const {
    std::string szOut;
    for (const Finding& finding : findings)
        szOut += std::string(szOut.empty() ? "" : ",") + "{\"problem\":" + QuoteJSON(finding.sProblem) +
                 ",\"nextStep\":" + QuoteJSON(finding.sNextStep) + "}";
    return "[" + szOut + "]";
}

std::string Report::_ToJSON() const {
    std::string szOut;
    const auto add = [&](const char* szKey, const std::string& szValue) {
        szOut += szOut.empty() ? '{' : ',';
        szOut += QuoteJSON(szKey);
        szOut += ':';
        szOut += szValue;
    };
    add("command", QuoteJSON(szCommand));
    add("status", std::to_string(nStatus));
    for (const Fact& fact : facts)
        add(fact.szKey, fact.szJSON);
    if (bFindings)
        add("findings", _FindingsToJSON());
    if (!szMessage.empty())
        add("message", QuoteJSON(szMessage));
    szOut += "}\n";
    return szOut;
}

bool Report::Print(bool bJSON) const {
    if (bJSON) {
        fputs(_ToJSON().c_str(), stdout);
    } else {
        for (const Fact& fact : facts)
            printf("%s: %s\n", fact.szLabel, fact.szText.c_str());
        for (const Finding& finding : findings)
            printf("problem: %s\n  next step: %s\n", finding.sProblem.c_str(), finding.sNextStep.c_str());
    }
    const bool bWritten = fflush(stdout) == 0 && ferror(stdout) == 0;
    if (!bJSON && !szMessage.empty())
        fprintf(stderr, LOGINHELPER_CONTROL ": %s\n", szMessage.c_str());
    return bWritten;
}
