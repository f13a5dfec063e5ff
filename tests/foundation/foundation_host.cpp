// The other process of the foundation tests. Without arguments it is an application that says what its
// delegate hears, and stays until it is ended or 30 seconds have passed; with one its loop never gets a turn.
#include <AppKit/AppKit.h>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

void say(const char* line) {
    std::puts(line);
    std::fflush(stdout);
}

// Two threads save keys of their own through one object, and say each key that is safe.
int saveKeys(const std::string& prefix, int count) {
    const NSRef<NSUserDefaults> settings = NSUserDefaults::initWithSuiteName("shared");
    const auto save = [&](const std::string& start) {
        for (int number = 0; number < count; ++number) {
            const std::string key = start + std::to_string(number);
            settings->setBool(true, key.c_str());
            if (!settings->synchronize() || !settings->boolForKey(key.c_str()))
                std::_Exit(EXIT_FAILURE);
            say(key.c_str());
        }
    };
    std::thread second(save, prefix + ".b");
    save(prefix + ".a");
    second.join();
    return EXIT_SUCCESS;
}

struct Delegate final : NSApplicationDelegate {
    explicit Delegate(bool isBusy) : busy(isBusy) {}
    void applicationDidFinishLaunching(const NSNotification& told) override {
        say(told.name());
        while (busy)
            pause();
    }
    void applicationWillTerminate(const NSNotification& told) override { say(told.name()); }
    const bool busy;
};

} // namespace

int main(int argc, char* argv[]) {
    if (argc == 3)
        return saveKeys(argv[1], std::atoi(argv[2]));
    alarm(30);
    static const bool busy = argc == 2;
    return NSApplicationMain(argc, argv, []() -> NSApplicationDelegate* { return new Delegate(busy); });
}
