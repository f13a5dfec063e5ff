#include <port/user.h>

#include <cerrno>
#include <cstddef>

namespace port {
namespace {

constexpr std::size_t kFirstTextsSize = 1024; // bytes of the texts of one entry
constexpr std::size_t kLargestTextsSize = std::size_t{1} << 20;

char noText[] = "";
char* noMembers[] = {nullptr};

template <typename Field>
void replaceNull(Field& field, Field instead) {
    if (field == nullptr)
        field = instead;
}

void fillIn(passwd& entry) {
    replaceNull(entry.pw_name, noText);
    replaceNull(entry.pw_dir, noText);
}

void fillIn(::group& entry) {
    replaceNull(entry.gr_name, noText);
    replaceNull(entry.gr_mem, noMembers);
}

// Asks a reentrant function of the database with as much memory for the texts as the entry wants.
template <typename Entry, typename Ask>
DatabaseEntry<Entry> find(Ask ask) {
    for (std::size_t size = kFirstTextsSize; size <= kLargestTextsSize; size *= 2) {
        Entry entry;
        Entry* found = nullptr;
        Unique<char[]> texts(new char[size]);
        const int error = ask(&entry, texts.get(), size, &found);
        if (found != nullptr) {
            fillIn(entry);
            return {entry, std::move(texts)};
        }
        if (error != ERANGE)
            break;
    }
    return {};
}

} // namespace

UserEntry userEntry(uid_t user) {
    return find<passwd>([=](auto... place) { return ::getpwuid_r(user, place...); });
}

UserEntry userNamed(const char* name) {
    return find<passwd>([=](auto... place) { return ::getpwnam_r(name, place...); });
}

GroupEntry groupEntry(gid_t group) {
    return find<::group>([=](auto... place) { return ::getgrgid_r(group, place...); });
}

} // namespace port
