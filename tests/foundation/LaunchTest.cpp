// Bundles that run: found in the process table, and started from scratch.
#include <AppKit/AppKit.h>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <thread>

#include "xpc/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kIdentifier = "com.example.probe";

class Launch : public testing::Test {
protected:
    ~Launch() override {
        for (const auto& application : running())
            kill(application->processIdentifier(), SIGKILL);
    }

    static std::vector<NSRef<NSRunningApplication>> running() {
        return NSRunningApplication::runningApplicationsWithBundleIdentifier(kIdentifier);
    }

    // A bundle with the test's host as its program; `entries` are those of its Info.plist.
    std::string makeBundle(const std::string& name, const std::string& entries) const {
        const std::string bundle = place.Path() + "/" + name + ".app";
        fs::create_directories(bundle + "/Contents/MacOS");
        fs::copy_file(HostPath("foundation_host"), bundle + "/Contents/MacOS/" + name);
        std::ofstream(bundle + "/Contents/Info.plist")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>"
               "<key>CFBundleIdentifier</key><string>"
            << kIdentifier << "</string>" << entries << "</dict></plist>";
        return bundle;
    }

    // What the launched program wrote down, by the first word of each line.
    std::map<std::string, std::string> report() const {
        const std::string path = place.Path() + "/report";
        for (int wait = 0; wait < 500 && !fs::exists(path); ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::map<std::string, std::string> lines;
        std::ifstream in(path);
        for (std::string word, rest; in >> word && std::getline(in >> std::ws, rest);)
            lines[word] = rest;
        return lines;
    }

    PrivatePlace place;
};

TEST_F(Launch, StartsFromScratch) {
    const std::string bundle = makeBundle("Probe", "");
    const int kept = open("/dev/null", O_RDONLY); // inheritable on purpose
    const int high = fcntl(kept, F_DUPFD, 300);
    signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    setenv("LISTEN_FDS", "1", 1);
    ASSERT_TRUE(NSWorkspace::sharedWorkspace()->launchApplication(bundle.c_str()));
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    unsetenv("LISTEN_FDS");
    close(kept);
    close(high);

    const auto lines = report();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.at("descriptors"), "0 1 2 ");
    EXPECT_EQ(lines.at("stdin"), "/dev/null");
    EXPECT_EQ(lines.at("folder"), place.Path());
    EXPECT_EQ(lines.at("mark"), "1");
    EXPECT_EQ(lines.at("manager"), "none");
    EXPECT_EQ(lines.at("SIGPIPE"), "default 1");
    EXPECT_EQ(lines.at("SIGUSR1"), "blocked 0");
    EXPECT_NE(lines.at("parent"), std::to_string(getpid()));
    EXPECT_NE(lines.at("session"), std::to_string(getsid(0)));
}

TEST_F(Launch, NoSecondCopyAlsoThroughALink) {
    const std::string bundle = makeBundle("Probe", "");
    const std::string link = place.Path() + "/Link.app";
    fs::create_directory_symlink(bundle, link);
    for (const std::string& path : {bundle, bundle, link, bundle + "/"})
        EXPECT_TRUE(NSWorkspace::sharedWorkspace()->launchApplication(path.c_str())) << path;
    EXPECT_EQ(running().size(), 1U);
}

TEST_F(Launch, WhatCannotBeStarted) {
    const std::string bundle = makeBundle("Probe", "");
    const std::string program = bundle + "/Contents/MacOS/Probe";
    fs::create_directories(place.Path() + "/Empty.app/Contents/MacOS");
    std::ofstream(program) << "no program";
    const std::string rows[] = {bundle,
                                place.Path() + "/Empty.app",
                                place.Path() + "/Absent.app",
                                "Probe.app",
                                "",
                                makeBundle("Escape", "<key>CFBundleExecutable</key><string>../../../"
                                                     "Escape.app/Contents/MacOS/Escape</string>")};
    fs::current_path(place.Path());
    for (const std::string& path : rows)
        EXPECT_FALSE(NSWorkspace::sharedWorkspace()->launchApplication(path.c_str())) << path;
    fs::current_path("/");
    EXPECT_TRUE(running().empty());
    EXPECT_FALSE(NSWorkspace::sharedWorkspace()->launchApplication(nullptr));
}

TEST_F(Launch, RunningApplicationsByIdentifierAndName) {
    static constexpr struct {
        const char* bundle;
        const char* entries;
        const char* name;
    } rows[] = {{"One",
                 "<key>CFBundleDisplayName</key><string>Shown Näme</string>"
                 "<key>CFBundleName</key><string>Short</string>",
                 "Shown Näme"},
                {"Two", "<key>CFBundleName</key><string>Short</string>", "Short"},
                {"Three", "<key>CFBundleName</key><integer>3</integer>", "Three"}};
    EXPECT_TRUE(running().empty());
    for (const auto& row : rows) {
        const std::string bundle = makeBundle(row.bundle, row.entries);
        const std::string program = bundle + "/Contents/MacOS/" + row.bundle;
        const ChildProcess child({program});
        EXPECT_FALSE(report().empty()) << row.name;
        // Replacing the program of a running application, as an update does, must not hide it.
        fs::rename(program, program + ".old");
        fs::copy_file(program + ".old", program);
        fs::remove(program + ".old");
        const auto found = running();
        ASSERT_EQ(found.size(), 1U) << row.name;
        EXPECT_STREQ(found[0]->localizedName().UTF8String(), row.name);
        EXPECT_EQ(found[0]->processIdentifier(), child.Pid()) << row.name;
        fs::remove(place.Path() + "/report");
    }
    EXPECT_TRUE(NSRunningApplication::runningApplicationsWithBundleIdentifier("com.example").empty());
}

TEST(Application, TellsItsDelegateAndEndsWithZero) {
    constexpr const char* kLaunched = "NSApplicationDidFinishLaunchingNotification";
    constexpr const char* kTerminates = "NSApplicationWillTerminateNotification";
    ChildProcess waiting({HostPath("foundation_host"), "application"});
    EXPECT_EQ(waiting.ReadLine(), kLaunched);
    waiting.Kill(SIGTERM);
    EXPECT_EQ(waiting.ReadLine(), kTerminates);
    EXPECT_EQ(waiting.Wait(), 0);
}

} // namespace
