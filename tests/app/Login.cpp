#include "app/Login.h"

#include <AppKit/AppKit.h>
#include <LoginHelperContract.h>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/file.h>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr const char* kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>";
constexpr const char* kTail = "</dict></plist>";
constexpr const char* kStartFile = "started";

std::string Entry(const char* key, const std::string& text) {
    return std::string("<key>") + key + "</key><string>" + text + "</string>";
}

std::vector<NSRef<NSRunningApplication>> Running() {
    return NSRunningApplication::runningApplicationsWithBundleIdentifier(LMainAppIdentifier);
}

} // namespace

Login::Login() : turn(open("/tmp/lfoundation-test-login.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    flock(turn.get(), LOCK_EX);
    setenv("MAINAPP_START_FILE", kStartFile, 1);
    unsetenv("PORT_SYSTEM_VERSION");
}

Login::~Login() {
    for (const auto& application : Running())
        kill(application->processIdentifier(), SIGKILL);
    while (RunningApplications() != 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::string Login::MakeBundle(const char* version, const char* name, const char* displayName) const {
    std::string bundle = place.Path() + "/" + name + ".app";
    fs::create_directories(bundle + "/Contents/MacOS");
    fs::copy_file(MAIN_APP_PROGRAM, bundle + "/Contents/MacOS/" + name, fs::copy_options::overwrite_existing);
    std::ofstream(bundle + "/Contents/Info.plist")
        << kHead << Entry("CFBundleIdentifier", LMainAppIdentifier)
        << Entry("CFBundleDisplayName", displayName) << Entry("CFBundleExecutable", name)
        << (version != nullptr ? Entry("CFBundleVersion", version) : "") << kTail;
    return bundle;
}

void Login::Store(const std::string& setting, const std::string& path) const {
    std::ofstream out(place.Path() + "/" + LHelperIdentifier + ".plist");
    out << kHead;
    if (!setting.empty())
        out << "<key>" << LSettingLaunchAtLogin << "</key>" << setting;
    if (!path.empty())
        out << Entry(LSettingMainAppPath, path);
    out << kTail;
}

std::string Login::StoredPath() {
    const auto path = NSUserDefaults::initWithSuiteName(LHelperIdentifier)->stringForKey(LSettingMainAppPath);
    return path ? path->UTF8String() : "(none)";
}

bool Login::StoredSetting() {
    return NSUserDefaults::initWithSuiteName(LHelperIdentifier)->boolForKey(LSettingLaunchAtLogin);
}

std::unique_ptr<ChildProcess> Login::StartHelper() {
    return std::make_unique<ChildProcess>(
        std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" 2>&1", HELPER_PROGRAM});
}

std::string Login::LaunchedApplicationSays() const {
    const std::string path = place.Path() + "/" + kStartFile;
    for (int wait = 0; wait < 500 && (!fs::exists(path) || fs::is_empty(path)); ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

int Login::RunningApplications() {
    return static_cast<int>(Running().size());
}
