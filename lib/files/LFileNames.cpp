#include "files/LFile.h"
#include "files/internal/LFilePathText.h"

#include <array>
#include <port/internal/exported.h>
#include <string_view>
#include <strings.h>

namespace {

// Why a character may not stand in a file name.
enum LNameFault : unsigned char { NoFault = 0, Forbidden = 1, Separator = 2 };

constexpr std::array<unsigned char, 256> MakeFaults() {
    std::array<unsigned char, 256> faults{};
    for (unsigned i = 1; i < ' '; ++i)
        faults[i] = Forbidden;
    for (const char character : std::string_view("\"*:<>?|"))
        faults[static_cast<unsigned char>(character)] = Forbidden;
    faults['/'] = faults['\\'] = Separator;
    return faults;
}

constexpr std::array<unsigned char, 256> kFaultOf = MakeFaults();

unsigned FaultOf(char character) {
    return kFaultOf[static_cast<unsigned char>(character)];
}

// Copies what has none of the faults; returns the length.
std::size_t CopyWithout(unsigned faults, const char* szText, char* szOut) {
    std::size_t dwLength = 0;
    for (; *szText != '\0' && dwLength < LPathLongest; ++szText)
        if ((FaultOf(*szText) & faults) == 0)
            szOut[dwLength++] = *szText;
    szOut[dwLength] = '\0';
    return dwLength;
}

} // namespace

bool LFile::PreprocessName(const char* szName, char* szOut) {
    return CopyWithout(Forbidden | Separator, szName, szOut) != 0;
}

bool LFile::PreprocessPath(const char* szPath, char* szOut) {
    const std::size_t dwLength = CopyWithout(Forbidden, szPath, szOut);
    return std::string_view(szOut, dwLength).find_first_not_of(' ') != std::string_view::npos;
}

bool LFile::IsFileValid(const char* szName) {
    if (*szName == '\0')
        return false;
    while (*szName != '\0' && FaultOf(*szName) == NoFault)
        ++szName;
    return *szName == '\0';
}

char* LFile::EscapeFilePath(const char* szPath, char* szOut) {
    std::size_t dwLength = 0;
    for (; *szPath != '\0' && dwLength < LPathLongest; ++szPath) {
        if (*szPath == '"' || *szPath == '`') {
            szOut[dwLength++] = '\\';
            if (dwLength == LPathLongest)
                break;
        }
        szOut[dwLength++] = *szPath;
    }
    szOut[dwLength] = '\0';
    return szOut;
}

bool LIsFileExtensionInList(const char* const* pExtensions, const char* szExtension) {
    for (; *pExtensions != nullptr; ++pExtensions)
        if (strcasecmp(*pExtensions, szExtension) == 0)
            return true;
    return false;
}

bool LFileIsLetterOrNumber(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9');
}

template <typename>
int tstrcmpend(const char* szText, const char* szEnding) {
    const std::size_t dwText = std::strlen(szText);
    const std::size_t dwEnding = std::strlen(szEnding);
    return dwEnding > dwText ? -1 : std::strcmp(szText + dwText - dwEnding, szEnding);
}
template PORT_EXPORTED int tstrcmpend<>(const char*, const char*);
