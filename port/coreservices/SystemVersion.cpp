#include <CoreServices/CoreServices.h>

#include <atomic>
#include <charconv>
#include <cstdlib>
#include <port/internal/seams_coreservices.h>
#include <string_view>

namespace {

// Aligned so that both numbers are read and written at once, by one instruction.
struct alignas(8) Version {
    SInt32 major;
    SInt32 minor; // kFails: the call fails
};

constexpr SInt32 kFails = -1;
constexpr Version kDefault = {10, 9};
constexpr Version kFailure = {0, kFails};
constexpr Version kEnvironment = {kFails, kFails}; // ask the environment

constinit std::atomic<Version> chosen{kEnvironment};

// Takes the number at the beginning of the text off it. False when there is none.
bool takeNumber(std::string_view& text, SInt32& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc{} && number >= 0;
}

Version parse(std::string_view text) {
    Version version = {};
    if (!takeNumber(text, version.major) || !text.starts_with('.'))
        return kFailure;
    text.remove_prefix(1);
    return takeNumber(text, version.minor) && text.empty() ? version : kFailure;
}

Version current() {
    const Version version = chosen.load(std::memory_order_relaxed);
    if (version.major != kFails)
        return version;
    const char* const text = std::getenv("PORT_SYSTEM_VERSION");
    return text != nullptr ? parse(text) : kDefault;
}

} // namespace

void port_set_system_version(const char* text) {
    chosen.store(text != nullptr ? parse(text) : kEnvironment, std::memory_order_relaxed);
}

OSErr Gestalt(OSType selector, SInt32* response) {
    if (selector != gestaltSystemVersionMajor && selector != gestaltSystemVersionMinor)
        return gestaltUndefSelectorErr;
    const Version version = current();
    if (version.minor == kFails)
        return gestaltUnknownErr;
    *response = selector == gestaltSystemVersionMajor ? version.major : version.minor;
    return noErr;
}
