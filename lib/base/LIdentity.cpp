#include "base/LIdentity.h"

#include <cstring>

#include "base/internal/LIdentity.h"

namespace {

constexpr std::size_t kLongestName = 200; // bytes; with the user's name behind it still a file's

constinit LIdentity identity;

bool IsFileName(const char* szName) {
    return szName[0] != '\0' && strcmp(szName, ".") != 0 && strcmp(szName, "..") != 0 &&
           strchr(szName, '/') == nullptr && strlen(szName) <= kLongestName;
}

} // namespace

bool LSetIdentity(const char* szName, const char* szIdentifier) {
    if (!IsFileName(szName) || szIdentifier[0] == '\0')
        return false;
    identity = {szName, szIdentifier};
    return true;
}

const LIdentity& LGetIdentity() {
    return identity;
}
