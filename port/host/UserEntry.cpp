#include <port/user.h>

#include <cerrno>
#include <grp.h>
#include <pwd.h>

namespace port {
namespace {

constexpr std::size_t kFirstTextsSize = 1024; // bytes of the texts of one entry
constexpr std::size_t kLargestTextsSize = std::size_t{1} << 20;

// Asks a reentrant function of the database with as much memory for the texts as the entry wants.
template <typename Entry, typename Ask>
bool find(Entry& entry, std::vector<char>& texts, Ask ask) {
    Entry* found = nullptr;
    for (texts.resize(kFirstTextsSize); texts.size() <= kLargestTextsSize; texts.resize(2 * texts.size()))
        if (ask(&entry, texts.data(), texts.size(), &found) != ERANGE)
            break;
    return found != nullptr;
}

std::string orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

template <typename Ask>
std::optional<UserEntry> findUser(Ask ask) {
    passwd entry;
    std::vector<char> texts;
    if (!find(entry, texts, ask))
        return std::nullopt;
    return UserEntry{orEmpty(entry.pw_name), entry.pw_uid, entry.pw_gid, orEmpty(entry.pw_dir)};
}

} // namespace

std::optional<UserEntry> userEntry(uid_t user) {
    return findUser([=](auto... place) { return ::getpwuid_r(user, place...); });
}

std::optional<UserEntry> userNamed(const char* name) {
    return findUser([=](auto... place) { return ::getpwnam_r(name, place...); });
}

std::optional<GroupEntry> groupEntry(gid_t group) {
    ::group entry;
    std::vector<char> texts;
    if (!find(entry, texts, [=](auto... place) { return ::getgrgid_r(group, place...); }))
        return std::nullopt;
    GroupEntry result{orEmpty(entry.gr_name), {}};
    for (char** name = entry.gr_mem; name != nullptr && *name != nullptr; ++name)
        result.members.emplace_back(*name);
    return result;
}

} // namespace port
