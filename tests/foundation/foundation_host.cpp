// The other process of the foundation tests. Without arguments it is an application that says what its
// delegate hears, and stays until it is ended or 30 seconds have passed.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include <AppKit/AppKit.h>

namespace {

// Sets `count` keys of its own, with a save after each.
int writeKeys(const std::string& prefix, int count) {
    const NSRef<NSUserDefaults> settings = NSUserDefaults::initWithSuiteName("shared");
    for (int number = 0; number < count; ++number) {
        settings->setBool(YES, (prefix + std::to_string(number)).c_str());
        if (!settings->synchronize())
            return 1;
    }
    return 0;
}

// Saves the same rising number under two keys for ever, and says each one that is safe.
int writeForEver() {
    const NSRef<NSUserDefaults> settings = NSUserDefaults::initWithSuiteName("torture");
    const NSRef<NSString> last = settings->stringForKey("first");
    for (long number = last ? std::atol(last->UTF8String()) + 1 : 1;; ++number) {
        const NSRef<NSString> text = NSString::stringWithUTF8String(std::to_string(number).c_str());
        settings->setObject(*text, "first");
        settings->setObject(*text, "second");
        if (!settings->synchronize())
            return 1;
        std::puts(text->UTF8String());
        std::fflush(stdout);
    }
}

class Delegate final : public NSApplicationDelegate {
public:
    void applicationDidFinishLaunching(const NSNotification& notification) override { say(notification); }
    void applicationWillTerminate(const NSNotification& notification) override { say(notification); }

private:
    static void say(const NSNotification& notification) {
        std::puts(notification.name());
        std::fflush(stdout);
    }
};

} // namespace

int main(int argc, char* argv[]) {
    const std::string role = argc > 1 ? argv[1] : "";
    if (role == "write")
        return writeKeys(argv[2], std::atoi(argv[3]));
    if (role == "torture")
        return writeForEver();
    alarm(30);
    return NSApplicationMain(argc, argv, []() -> NSApplicationDelegate* { return new Delegate; });
}
