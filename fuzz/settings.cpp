// A settings file of any bytes: every question is answered, and a save puts its key over what the file held, keeps
// the other keys, and sets a damaged file aside.
#include <Foundation/Foundation.h>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr char kSuite[] = "fuzzed";
constexpr char kAsked[] = "asked"; // the corpus has it

const std::string& folder() {
    static const std::string& path = *new std::string([]() -> std::string {
        char name[] = "/dev/shm/fuzz-settings-XXXXXX";
        char* const made = mkdtemp(name);
        if (made == nullptr)
            std::abort();
        setenv("XDG_CONFIG_HOME", made, 1);
        std::atexit([] { std::filesystem::remove_all(folder()); });
        return made;
    }());
    return path;
}

void require(bool holds) {
    if (!holds)
        std::abort();
}

std::string textUnder(const NSUserDefaults& settings, const char* key) {
    const NSRef<NSString> text = settings.stringForKey(key);
    return text ? text->UTF8String() : "";
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const auto& entry : std::filesystem::directory_iterator(folder()))
        std::filesystem::remove(entry);
    std::ofstream(folder() + "/fuzzed.plist", std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    const auto settings = NSUserDefaults::initWithSuiteName(kSuite);
    int error = 0;
    const bool isSound = settings->port_isReadable(&error);
    require(isSound || error == EBADMSG);
    const std::string before = textUnder(*settings, kAsked);
    const bool wasOn = settings->boolForKey(kAsked);
    static_cast<void>(settings->dataForKey(kAsked));
    static_cast<void>(settings->arrayForKey(kAsked));
    settings->setBool(true, "saved");
    settings->port_editArray("one", "two", "edited");
    if (!settings->synchronize()) {
        require(errno == EFBIG); // the list was as long as one may be
        return 0;
    }
    const auto again = NSUserDefaults::initWithSuiteName(kSuite);
    require(again->port_isReadable(&error) && again->boolForKey("saved"));
    require(textUnder(*again, kAsked) == before && again->boolForKey(kAsked) == wasOn);
    const auto edited = again->arrayForKey("edited");
    require(edited && edited->count() != 0);
    bool isKept = false;
    for (const auto& entry : std::filesystem::directory_iterator(folder()))
        isKept |= entry.path().filename().native().find(".corrupt-") != std::string::npos;
    require(isKept == !isSound);
    return 0;
}
