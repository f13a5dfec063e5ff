#include "strings/LStringUtilities.h"

#include "strings/LStringFormat.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <port/internal/exported.h>
#include <sys/time.h>

namespace {

// Stores the argument that starts at the position when out is not null, and moves the position behind the
// character that ended it. Returns the argument's length.
unsigned long ReadArgument(const char*& position, char* out) {
    unsigned long dwLength = 0;
    bool bQuoted = false;
    while (*position != 0) {
        char nChar = *position++;
        if (nChar == '"') {
            if (bQuoted)
                break;
            bQuoted = true;
            continue;
        }
        if (nChar == ' ' && !bQuoted)
            break;
        if (nChar == '\\' && *position == ' ')
            nChar = *position++;
        if (out != nullptr)
            out[dwLength] = nChar;
        ++dwLength;
    }
    return dwLength;
}

template <typename T>
int HexDigitValue(T nChar) {
    if (nChar >= '0' && nChar <= '9')
        return static_cast<int>(nChar - '0');
    if (nChar >= 'a' && nChar <= 'f')
        return static_cast<int>(nChar - 'a' + 10);
    if (nChar >= 'A' && nChar <= 'F')
        return static_cast<int>(nChar - 'A' + 10);
    return -1;
}

template <typename T>
std::uint32_t ParseHex(const T* text) {
    std::uint32_t nValue = 0;
    for (int nDigit; (nDigit = HexDigitValue(*text)) >= 0; ++text)
        nValue = nValue * 16 + static_cast<std::uint32_t>(nDigit);
    return nValue;
}

} // namespace

template <typename T>
bool LStringFindTextFieldTemplate(const T* text, const T* startMarker, const T* endMarker, T* out,
                                  unsigned long outSize) {
    const T* pValue = std::strstr(text, startMarker);
    unsigned long dwLength = 0;
    if (pValue != nullptr) {
        pValue += std::strlen(startMarker);
        const T* const pEnd = std::strstr(pValue, endMarker);
        dwLength = pEnd != nullptr ? static_cast<unsigned long>(pEnd - pValue) : std::strlen(pValue);
    }
    if (outSize != 0) {
        dwLength = std::min(dwLength, outSize - 1);
        std::copy_n(pValue, dwLength, out);
        out[dwLength] = 0;
    }
    return pValue != nullptr;
}
template PORT_EXPORTED bool LStringFindTextFieldTemplate(const char*, const char*, const char*, char*,
                                                         unsigned long);

bool LStringFindTextField(const char* text, const char* startMarker, const char* endMarker, char* out,
                          unsigned long outSize) {
    return LStringFindTextFieldTemplate(text, startMarker, endMarker, out, outSize);
}

void LRemoveHTTPItem(const char* name, char* query) {
    char szKey[LHTTPItemKeyLength + 1];
    const unsigned long dwKey = tplsnprintf(szKey, sizeof(szKey), "%s=", name);
    char* pStart = std::strstr(query, szKey);
    if (pStart == nullptr)
        return;
    char* const pEnd = pStart + dwKey + std::strcspn(pStart + dwKey, "&");
    if (pStart != query && pStart[-1] == '&')
        --pStart;
    std::memmove(pStart, pEnd, std::strlen(pEnd) + 1);
}

template <typename>
bool GetCSVListItem(const char* line, unsigned long& position, char* out, unsigned long outSize) {
    if (outSize == 0)
        return false;
    unsigned long dwStored = 0;
    unsigned long dwLength = 0; // of what is stored, without the unquoted spaces at its end
    bool bQuoted = false;
    for (; line[position] != 0 && line[position] != '\n' && line[position] != '\r'; ++position) {
        const char nChar = line[position];
        if (nChar == '"') {
            bQuoted = !bQuoted;
            continue;
        }
        if (nChar == ',' && !bQuoted) {
            ++position;
            break;
        }
        const bool bBlank = nChar == ' ' && !bQuoted;
        if ((bBlank && dwStored == 0) || dwStored == outSize - 1)
            continue;
        out[dwStored++] = nChar;
        if (!bBlank)
            dwLength = dwStored;
    }
    out[dwLength] = 0;
    return dwLength != 0;
}
template PORT_EXPORTED bool GetCSVListItem<>(const char*, unsigned long&, char*, unsigned long);

bool LCommandLineArgumentStringExpander::NextArgument() {
    while (*pPosition >= 1 && *pPosition <= ' ')
        ++pPosition;
    // The argument gets the capacity that growing by one character at a time would give it.
    const char* pScan = pPosition;
    const unsigned long dwLength = ReadArgument(pScan, nullptr);
    if (dwLength != 0)
        lsArgument.GrowToSize(dwLength + 1);
    ReadArgument(pPosition, lsArgument.GetData());
    lsArgument.SetLength(static_cast<std::uint32_t>(dwLength));
    return dwLength != 0;
}

unsigned long LCommandLineArgumentStringExpander::GetArgumentCount(const char* commandLine) const {
    LCommandLineArgumentStringExpander expander(commandLine);
    expander.NextArgument();
    unsigned long dwCount = 0;
    while (expander.NextArgument())
        ++dwCount;
    return dwCount;
}

template <typename T>
unsigned long LParseGetToCharacters(const T* text, const T* stops, T* out) {
    const unsigned long dwScanned = std::strcspn(text, stops);
    const unsigned long dwStored = std::min(dwScanned, LPathBufferSize - 1);
    std::memcpy(out, text, dwStored);
    out[dwStored] = 0;
    return dwScanned;
}
template PORT_EXPORTED unsigned long LParseGetToCharacters(const char*, const char*, char*);

template <typename>
std::uint32_t atoh(const char* text) {
    return ParseHex(text);
}
template PORT_EXPORTED std::uint32_t atoh<>(const char*);

template <typename>
std::uint32_t wtoh(const wchar_t* text) {
    return ParseHex(text);
}
template PORT_EXPORTED std::uint32_t wtoh<>(const wchar_t*);

template <typename>
unsigned long lstrlen(const unsigned short* text) {
    unsigned long dwLength = 0;
    while (text[dwLength] != 0)
        ++dwLength;
    return dwLength;
}
template PORT_EXPORTED unsigned long lstrlen<>(const unsigned short*);

template <typename>
int wstrcmp(const wchar_t* a, const wchar_t* b) {
    for (; *a != 0 && *b != 0; ++a, ++b)
        if (*a != *b)
            return -1;
    return 0;
}
template PORT_EXPORTED int wstrcmp<>(const wchar_t*, const wchar_t*);

template <typename>
char* strlwr(char* text) {
    for (char* p = text; *p != 0; ++p)
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
    return text;
}
template PORT_EXPORTED char* strlwr<>(char*);

template <typename>
char* strupr(char* text) {
    for (char* p = text; *p != 0; ++p)
        *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    return text;
}
template PORT_EXPORTED char* strupr<>(char*);

template <typename>
void randomize() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    std::srand(static_cast<unsigned>(now.tv_sec * 1000 + now.tv_usec / 1000));
    std::srand(static_cast<unsigned>(std::rand()) ^ static_cast<unsigned>(now.tv_sec));
}
template PORT_EXPORTED void randomize<>();

unsigned long LStringGenerateRandomPassword(char* out, unsigned long length) {
    randomize();
    for (unsigned long i = 0; i < length; ++i)
        out[i] = static_cast<char>('a' + std::rand() % 26);
    out[length] = 0;
    return length;
}
