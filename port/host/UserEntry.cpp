#include "host/UserEntry.h"

#include <pwd.h>
#include <vector>

namespace port {
namespace {

constexpr std::size_t kTextsSize = 16384; // bytes of the texts of one entry

std::string orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

} // namespace

std::optional<UserEntry> userEntry(uid_t user) {
    std::vector<char> texts(kTextsSize);
    passwd entry;
    passwd* found = nullptr;
    if (::getpwuid_r(user, &entry, texts.data(), texts.size(), &found) != 0 || found == nullptr)
        return std::nullopt;
    return UserEntry{orEmpty(entry.pw_name), entry.pw_gid, orEmpty(entry.pw_dir)};
}

} // namespace port
