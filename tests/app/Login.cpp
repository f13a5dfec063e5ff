#include "app/Login.h"

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <thread>

#include "support/Bundle.h"
#include "support/MainQueue.h"

Login::Login() : turn(open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    flock(turn.get(), LOCK_EX);
    unsetenv("PORT_SYSTEM_VERSION");
    // For all users: the application registers nothing because of it.
    setenv("XDG_CONFIG_DIRS", (place.Path() + "/xdg").c_str(), 1);
    std::filesystem::create_directories(place.Path() + "/xdg/autostart");
    std::ofstream(place.Path() + "/xdg/autostart/" + LHelperSessionEntry)
        << "[Desktop Entry]\nExec=\"" HELPER_PROGRAM "\"\n";
}

Login::~Login() {
    for (const auto& application : RunningApplications())
        kill(application->processIdentifier(), SIGKILL);
    while (!RunningApplications().empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::string Login::MakeBundle(const char* version, const char* name, const char* displayName) const {
    return MakeBundleAt(place.Path(), name, MAIN_APP_PROGRAM,
                        Entry("CFBundleIdentifier", LMainAppIdentifier) +
                            Entry("CFBundleDisplayName", displayName) + Entry("CFBundleExecutable", name) +
                            (version != nullptr ? Entry("CFBundleVersion", version) : ""));
}

void Login::Store(const std::string& setting, const std::string& path) const {
    std::ofstream(place.Path() + "/" + LHelperIdentifier + ".plist") << PropertyList(
        (setting.empty() ? "" : std::string("<key>") + LSettingLaunchAtLogin + "</key>" + setting) +
        (path.empty() ? "" : Entry(LSettingMainAppPath, path)));
}

std::string Login::Stored() {
    const auto settings = NSUserDefaults::initWithSuiteName(LHelperIdentifier);
    const auto path = settings->stringForKey(LSettingMainAppPath);
    return std::string(settings->boolForKey(LSettingLaunchAtLogin) ? "on " : "off ") +
           (path ? path->UTF8String() : "(none)");
}

std::unique_ptr<ChildProcess> Login::StartHelper(const std::string& program, const char* argument) {
    std::vector<std::string> words{"/bin/sh", "-c", R"(exec "$0" "$@" 2>&1 >>"$HOME/said")", program};
    if (argument != nullptr)
        words.emplace_back(argument);
    return std::make_unique<ChildProcess>(std::move(words));
}

std::string Login::Said() const {
    std::string said;
    WaitFor([&] { return (said = FileText(Path() + "/said")).ends_with('\n'); });
    return said;
}

port::References<NSRunningApplication> Login::RunningApplications() {
    return NSRunningApplication::runningApplicationsWithBundleIdentifier(LMainAppIdentifier);
}

std::pair<int, std::string> Login::Ctl(const std::string& words, const char* program) {
    ChildProcess shell({"/bin/sh", "-c", "\"" + std::string(program) + "\" " + words + " 2>&1"});
    const std::string text = shell.ReadAll();
    return {shell.Wait(), text};
}
