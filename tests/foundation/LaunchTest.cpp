// Bundles that run: found in the process table, and started from scratch.
#include <AppKit/AppKit.h>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>

#include "support/Bundle.h"
#include "support/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

// Of this process alone: tests run side by side.
const std::string identifier = "com.example.probe" + std::to_string(getpid());

class Launch : public testing::Test {
protected:
    ~Launch() override {
        for (const auto& application : running())
            kill(application->processIdentifier(), SIGKILL);
    }

    static port::References<NSRunningApplication> running(const char* of = identifier.c_str()) {
        return NSRunningApplication::runningApplicationsWithBundleIdentifier(of);
    }
    static bool launch(const std::string& path) {
        return NSWorkspace::sharedWorkspace()->launchApplication(path.c_str());
    }
    std::string makeBundle(const std::string& name, const std::string& entries = "",
                           const std::string& program = HostPath("foundation_host")) const {
        return MakeBundleAt(place.Path(), name, program, Entry("CFBundleIdentifier", identifier) + entries);
    }

    PrivatePlace place;
};

port::UniqueFd listenAt(const std::string& path) {
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    port::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(listen(socket.get(), 1), 0);
    return socket;
}

TEST_F(Launch, StartsFromScratch) {
    const std::string script = place.Path() + "/script";
    std::ofstream(script)
        << "#!/bin/sh\n"
           "{ ls /proc/self/fd; readlink /proc/self/fd/0 /proc/self/fd/2 /proc/self/cwd\n"
           "  echo $LAUNCHED_AT_LOGIN $LISTEN_FDS; grep -E 'Sig(Blk|Ign)' /proc/self/status\n"
           "  cut -d' ' -f6 /proc/$$/stat; } >$HOME/part; mv $HOME/part $HOME/report\n";
    fs::permissions(script, fs::perms::owner_all);
    const port::UniqueFd kept(fcntl(STDIN_FILENO, F_DUPFD, 300)); // inheritable on purpose
    signal(SIGPIPE, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    setenv("LISTEN_FDS", "1", 1);
    // A service manager that does not answer delays the launch, no more.
    fs::create_directories(place.Path() + "/systemd/private");
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    const port::UniqueFd silent = listenAt(place.Path() + "/bus");
    const port::UniqueFd errors(dup(STDERR_FILENO));
    dup2(silent.get(), STDERR_FILENO); // not what may lose its reader
    ASSERT_TRUE(launch(makeBundle("Probe", "", script)));
    dup2(errors.get(), STDERR_FILENO);
    sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child of ours was left";

    for (int wait = 0; wait < 500 && !fs::exists(place.Path() + "/report"); ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const std::string report = FileText(place.Path() + "/report");
    // The descriptor 3 is the one that `ls` reads; the session at the end must only be another.
    const std::string expected = "0\n1\n2\n3\n/dev/null\n/dev/null\n" + place.Path() +
                                 "\n1\nSigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n";
    EXPECT_EQ(report.substr(0, expected.size()), expected);
    EXPECT_NE(report, expected + std::to_string(getsid(0)) + "\n");
}

TEST_F(Launch, WhatCannotBeStarted) {
    const std::string empty = place.Path() + "/Empty.app";
    fs::create_directories(empty + "/Contents/MacOS");
    const std::string broken = makeBundle("Broken");
    std::ofstream(broken + "/Contents/MacOS/Broken") << "no program";
    makeBundle("Good");
    fs::current_path(place.Path());
    const std::string barred = makeBundle("Barred");
    fs::permissions(barred + "/Contents/MacOS/Barred", fs::perms{0600});
    const std::pair<std::string, int> rows[] = {{empty, ENOENT},      {broken, ENOEXEC},
                                                {barred, EACCES},     {"", EINVAL},
                                                {"Good.app", EINVAL}, {place.Path() + "/Absent.app", ENOENT}};
    for (const auto& [path, error] : rows) {
        EXPECT_FALSE(launch(path)) << path;
        EXPECT_EQ(errno, error) << path;
    }
    fs::current_path("/");
    EXPECT_FALSE(NSWorkspace::sharedWorkspace()->launchApplication(nullptr));
    EXPECT_TRUE(running().empty());
}

TEST_F(Launch, RunningApplicationsFromStartToEnd) {
    const std::string link = place.Path() + "/Link.app";
    fs::create_directory_symlink("Probe.app", link);
    const std::pair<std::string, const char*> rows[] = {
        {Entry("CFBundleDisplayName", "Shown Näme") + Entry("CFBundleName", "Short"), "Shown Näme"},
        {Entry("CFBundleName", "Short"), "Short"},
        {"<key>CFBundleName</key><integer>3</integer>", "Probe"}};
    for (const auto& [entries, name] : rows) {
        const std::string bundle = makeBundle("Probe", entries);
        const std::string program = bundle + "/Contents/MacOS/Probe";
        ChildProcess child({program});
        EXPECT_EQ(child.ReadLine(), "NSApplicationDidFinishLaunchingNotification");
        // Replacing the program of a running application, as an update does, must not hide it.
        fs::copy_file(program, program + ".new");
        fs::rename(program + ".new", program);
        for (const std::string& path : {bundle, link, bundle + "/"})
            EXPECT_TRUE(launch(path)) << path;
        const auto found = running(); // no second copy
        ASSERT_EQ(found.size(), 1U) << name;
        EXPECT_STREQ(found[0]->localizedName().UTF8String(), name);
        EXPECT_EQ(found[0]->processIdentifier(), child.Pid()) << name;
        EXPECT_TRUE(running("com.example").empty());
        child.Kill(SIGTERM);
        EXPECT_EQ(child.ReadLine(), "NSApplicationWillTerminateNotification");
        EXPECT_EQ(child.Wait(), 0);
    }
}

TEST_F(Launch, ABusyApplicationEndsAtTheSecondSignalOrFiveSecondsAfterTheFirst) {
    ChildProcess waiting({HostPath("foundation_host"), "busy"}), asked({HostPath("foundation_host"), "busy"});
    for (ChildProcess* child : {&waiting, &asked}) {
        EXPECT_EQ(child->ReadLine(), "NSApplicationDidFinishLaunchingNotification");
        child->Kill(SIGTERM);
    }
    EXPECT_EQ(asked.Wait(50), -1);
    asked.Kill(SIGTERM);
    EXPECT_EQ(asked.Wait(3000), 128 + SIGTERM);
    EXPECT_EQ(waiting.Wait(), 128 + SIGTERM);
}

TEST_F(Launch, MissingStandardDescriptorsBecomeTheEmptyDevice) {
    ChildProcess child(
        {"/bin/sh", "-c", "exec \"$0\" <&- >&- 2>&-", makeBundle("Probe") + "/Contents/MacOS/Probe"});
    const std::string folder = "/proc/" + std::to_string(child.Pid()) + "/fd/";
    while (running().empty() || !fs::is_symlink(folder + "2"))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    for (const char* number : {"0", "1", "2"})
        EXPECT_EQ(fs::read_symlink(folder + number), "/dev/null");
}

} // namespace
