// The other process of the foundation tests. Without arguments it is the program of an application bundle:
// it writes down how it was started, then stays until it is ended or 30 seconds have passed.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include <AppKit/AppKit.h>

namespace {

std::string descriptors() {
    std::string list;
    for (int fd = 0; fd < 1024; ++fd)
        if (fcntl(fd, F_GETFD) >= 0)
            list += std::to_string(fd) + " ";
    return list;
}

int runApplication() {
    alarm(30);
    const std::string inherited = descriptors();
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    struct sigaction pipeAction;
    sigaction(SIGPIPE, nullptr, &pipeAction);
    const auto text = [](const char* name) { return getenv(name) == nullptr ? "none" : getenv(name); };
    const std::string report = std::string(getenv("HOME")) + "/report";
    {
        std::ofstream out(report + ".part");
        out << "descriptors " << inherited << "\nstdin "
            << std::filesystem::read_symlink("/proc/self/fd/0").string() << "\nfolder "
            << std::filesystem::current_path().string() << "\nmark " << text("LAUNCHED_AT_LOGIN")
            << "\nmanager " << text("LISTEN_FDS") << "\nSIGPIPE default "
            << (pipeAction.sa_handler == SIG_DFL) << "\nSIGUSR1 blocked " << sigismember(&blocked, SIGUSR1)
            << "\nparent " << getppid() << "\nsession " << getsid(0) << "\n";
    }
    std::filesystem::rename(report + ".part", report);
    pause();
    return 0;
}

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
        std::printf("%ld\n", number);
        std::fflush(stdout);
    }
}

// An application that says what its delegate hears.
class Delegate final : public NSApplicationDelegate {
public:
    void applicationDidFinishLaunching(const NSNotification& notification) override {
        std::printf("%s\n", notification.name());
        std::fflush(stdout);
    }
    void applicationWillTerminate(const NSNotification& notification) override {
        std::printf("%s\n", notification.name());
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
    if (role == "application")
        return NSApplicationMain(argc, argv, []() -> NSApplicationDelegate* { return new Delegate; });
    return runApplication();
}
