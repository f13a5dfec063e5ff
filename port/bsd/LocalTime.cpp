#include <port/time.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

constexpr std::time_t kNever = -1;
constexpr std::size_t kNameSize = 64; // of a zone, terminator included; a longer one is looked at each time
constexpr char kVariable[] = "TZ=";
constexpr std::size_t kVariableLength = sizeof kVariable - 1;

char* noEnvironment[] = {nullptr};

std::time_t coarseSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return now.tv_sec;
}

// What the zone depended on when this thread last had the C library look. That goes through the whole environment
// each time, and without TZ it asks the file system; this looks at the place where TZ was found, or at the end where
// a new one would be added. What that cannot see is seen a second later: the zone's file, and an environment that was
// made anew to look the same there.
class Look {
public:
    void renew() {
        if (isAsSeen())
            return;
        tzset();
        environment_ = now();
        for (place_ = 0; entry() != nullptr && std::strncmp(entry(), kVariable, kVariableLength) != 0;)
            ++place_;
        first_ = environment_[0];
        before_ = before();
        entry_ = entry();
        second_ = entry_ == nullptr || keepName() ? coarseSeconds() : kNever;
        keepOffsets();
    }

    // These tell when somebody else has had the C library look, at a TZ that is gone again. Each conversion may set
    // them, too.
    void keepOffsets() {
        offset_ = timezone;
        hasSummer_ = daylight;
    }

private:
    static char** now() { return environ != nullptr ? environ : noEnvironment; }
    const char* entry() const { return environment_[place_]; }
    const char* before() const { return place_ == 0 ? nullptr : environment_[place_ - 1]; }
    const char* zone() const { return entry_ + kVariableLength; }

    bool keepName() {
        const std::size_t size = std::strlen(zone()) + 1;
        if (size <= kNameSize)
            std::memcpy(name_, zone(), size);
        return size <= kNameSize;
    }

    // An environment may be shorter by now where it is, when the C library gave its end back: what is behind that is
    // not looked at, and a text that stood there may be gone as well. Nothing but the entries tells where they end.
    bool reachesPlace() const {
        char** const place = environment_ + place_;
        return std::find(environment_, place, nullptr) == place;
    }

    bool isAsSeen() const {
        return environment_ == now() && environment_[0] == first_ && reachesPlace() && entry() == entry_ &&
               before() == before_ && (entry_ == nullptr || std::strcmp(zone(), name_) == 0) &&
               timezone == offset_ && daylight == hasSummer_ && second_ == coarseSeconds();
    }

    char** environment_ = nullptr;
    std::size_t place_ = 0;
    const char* first_ = nullptr;
    const char* before_ = nullptr;
    const char* entry_ = nullptr; // null: none
    char name_[kNameSize] = "";   // what the entry held: its memory may be the program's own
    long offset_ = 0;
    int hasSummer_ = 0;
    std::time_t second_ = kNever;
};

constinit thread_local Look look;

} // namespace

tm* port_localtime_r(const std::time_t* time, tm* result) {
    look.renew();
    tm* const converted = localtime_r(time, result);
    look.keepOffsets();
    return converted;
}

// The C library's own looks at the zone each time; what it saw is to be known here.
std::time_t port_mktime(tm* fields) {
    look.renew();
    const std::time_t time = std::mktime(fields);
    look.keepOffsets();
    return time;
}
