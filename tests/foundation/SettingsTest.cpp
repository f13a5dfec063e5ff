// Settings: what is read, what is merged, and what becomes of the file when something fails.
#include <Foundation/Foundation.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>

#include "bsd/SystemCalls.h"
#include "xpc/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using port::sys::Call;

constexpr const char* kHead = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\">";

std::string textOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

ino_t inodeOf(const std::string& path) {
    struct stat status = {};
    stat(path.c_str(), &status);
    return status.st_ino;
}

class Settings : public testing::Test {
protected:
    std::string file(const char* name = "shared") const { return place.Path() + "/" + name + ".plist"; }
    void write(const std::string& text) const { std::ofstream(file(), std::ios::binary) << text; }
    static NSRef<NSUserDefaults> open(const char* name = "shared") {
        return NSUserDefaults::initWithSuiteName(name);
    }
    static std::string get(const NSRef<NSUserDefaults>& settings, const char* key) {
        const NSRef<NSString> text = settings->stringForKey(key);
        return text ? text->UTF8String() : "(none)";
    }
    static void set(const NSRef<NSUserDefaults>& settings, const char* key, const char* text) {
        settings->setObject(*NSString::stringWithUTF8String(text), key);
    }
    // Names in the settings folder that begin with the text.
    std::vector<std::string> names(const std::string& start) const {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(place.Path()))
            if (entry.path().filename().string().starts_with(start))
                found.push_back(entry.path().filename());
        return found;
    }

    PrivatePlace place;
};

TEST_F(Settings, BooleansAndStringsByStoredValue) {
    static constexpr struct {
        const char* value;
        bool boolean;
        const char* text;
    } rows[] = {{"<true/>", true, "(none)"},
                {"<false/>", false, "(none)"},
                {"<integer>1</integer>", true, "(none)"},
                {"<integer>0</integer>", false, "(none)"},
                {"<integer>-7</integer>", true, "(none)"},
                {"<real>0.25</real>", true, "(none)"},
                {"<real>0.0</real>", false, "(none)"},
                {"<string>YES</string>", true, "YES"},
                {"<string>true</string>", true, "true"},
                {"<string>no</string>", false, "no"},
                {"<string> +0012</string>", true, " +0012"},
                {"<string>-0</string>", false, "-0"},
                {"<string></string>", false, ""},
                {"<string>/Äpfel/Zubeq Free.app</string>", false, "/Äpfel/Zubeq Free.app"},
                {"<array><true/></array>", false, "(none)"},
                {"<data>AQ==</data>", false, "(none)"}};
    for (const auto& row : rows) {
        write(std::string(kHead) + "<dict><key>k</key>" + row.value + "</dict></plist>");
        const auto settings = open();
        EXPECT_EQ(settings->boolForKey("k"), row.boolean) << row.value;
        EXPECT_EQ(get(settings, "k"), row.text) << row.value;
    }
    EXPECT_FALSE(open()->boolForKey("absent"));
}

TEST_F(Settings, TwoWritersMergeKeyByKey) {
    const auto one = open();
    const auto two = open();
    set(one, "mine", "1");
    set(one, "both", "one");
    set(two, "yours", "2");
    set(two, "both", "two");
    ASSERT_TRUE(one->synchronize());
    EXPECT_EQ(get(two, "mine"), "(none)");
    ASSERT_TRUE(two->synchronize());
    EXPECT_EQ(get(two, "mine"), "1");
    EXPECT_EQ(get(one, "both"), "one");
    ASSERT_TRUE(one->synchronize()); // nothing pending: takes the other's changes in
    EXPECT_EQ(get(one, "both"), "two");
    one->removeObjectForKey("yours");
    EXPECT_EQ(get(one, "yours"), "(none)");
    ASSERT_TRUE(one->synchronize());
    ASSERT_TRUE(two->synchronize());
    EXPECT_EQ(get(two, "yours"), "(none)");
    EXPECT_EQ(get(two, "mine"), "1");
}

TEST_F(Settings, TwoProcessesLoseNothing) {
    constexpr int kKeys = 40;
    const std::string host = HostPath("foundation_host");
    ChildProcess one({host, "write", "one", std::to_string(kKeys)});
    ChildProcess two({host, "write", "two", std::to_string(kKeys)});
    ASSERT_EQ(one.Wait(), 0);
    ASSERT_EQ(two.Wait(), 0);
    const auto settings = open();
    for (int number = 0; number < kKeys; ++number)
        for (const char* prefix : {"one", "two"})
            EXPECT_TRUE(settings->boolForKey((prefix + std::to_string(number)).c_str())) << prefix << number;
}

TEST_F(Settings, ThreadsShareOneObject) {
    const auto settings = open();
    std::atomic<int> failures = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (int round = 0; round < 25; ++round) {
                const std::string key = std::to_string(thread) + "." + std::to_string(round);
                settings->setBool(YES, key.c_str());
                failures += !settings->synchronize() || !settings->boolForKey(key.c_str());
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    const auto again = open();
    for (int thread = 0; thread < 4; ++thread)
        for (int round = 0; round < 25; ++round)
            EXPECT_TRUE(again->boolForKey((std::to_string(thread) + "." + std::to_string(round)).c_str()));
}

TEST_F(Settings, NothingChangedNothingWritten) {
    const auto settings = open();
    settings->removeObjectForKey("absent");
    EXPECT_TRUE(settings->synchronize());
    EXPECT_TRUE(fs::is_empty(place.Path()));
    set(settings, "k", "v");
    ASSERT_TRUE(settings->synchronize());
    const ino_t before = inodeOf(file());
    set(settings, "k", "v");
    EXPECT_TRUE(settings->synchronize());
    EXPECT_EQ(inodeOf(file()), before);
}

TEST_F(Settings, FoldersAndModesAreExplicit) {
    umask(0);
    setenv("XDG_CONFIG_HOME", (place.Path() + "/deep/er").c_str(), 1);
    const auto settings = open();
    settings->setBool(YES, "k");
    ASSERT_TRUE(settings->synchronize());
    const auto mode = [&](const char* name) {
        return static_cast<int>(fs::status(place.Path() + name).permissions());
    };
    EXPECT_EQ(mode("/deep"), 0700);
    EXPECT_EQ(mode("/deep/er"), 0700);
    EXPECT_EQ(mode("/deep/er/shared.plist"), 0600);
    EXPECT_EQ(mode("/deep/er/shared.plist.lock"), 0600);
    fs::permissions(place.Path() + "/deep/er/shared.plist", fs::perms(0640));
    settings->setBool(NO, "k");
    ASSERT_TRUE(settings->synchronize());
    EXPECT_EQ(mode("/deep/er/shared.plist"), 0640);
}

TEST_F(Settings, LinksStayAndTheirTargetsAreReplaced) {
    fs::create_directory(place.Path() + "/kept");
    fs::create_symlink("kept/second", file());
    fs::create_symlink(place.Path() + "/kept/real", place.Path() + "/kept/second"); // dangles at first
    for (const char* text : {"first", "again"}) {
        const auto settings = open();
        set(settings, "k", text);
        ASSERT_TRUE(settings->synchronize());
        EXPECT_TRUE(fs::is_symlink(file()));
        EXPECT_TRUE(fs::is_regular_file(place.Path() + "/kept/real"));
        EXPECT_EQ(get(open(), "k"), text);
    }
}

TEST_F(Settings, DamagedFilesAreKeptAside) {
    const std::string rows[] = {"",
                                "garbage",
                                std::string(kHead) + "<dict><key>k</key><true/>",
                                std::string(kHead) + "<array/></plist>",
                                std::string("bplist00\xff\xff\xff\xff"),
                                std::string(kHead) + "<dict/></plist>" + std::string(5 << 20, ' ')};
    for (const std::string& text : rows) {
        const std::string row = text.substr(0, 80);
        write(text);
        testing::internal::CaptureStderr();
        const auto settings = open();
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << row << said;
        EXPECT_FALSE(settings->boolForKey("k")) << row;
        const auto kept = names("shared.plist.corrupt-");
        ASSERT_EQ(kept.size(), 1U) << row;
        EXPECT_EQ(textOf(place.Path() + "/" + kept[0]), text) << row;
        settings->setBool(YES, "k");
        EXPECT_TRUE(settings->synchronize()) << row;
        EXPECT_TRUE(open()->boolForKey("k")) << row;
        fs::remove(place.Path() + "/" + kept[0]);
    }
}

TEST_F(Settings, WhatCannotBeReadIsNeverReplaced) {
    fs::create_directory(file());
    const auto settings = open();
    settings->setBool(YES, "k");
    EXPECT_FALSE(settings->synchronize());
    EXPECT_TRUE(fs::is_directory(file()));
    EXPECT_TRUE(settings->boolForKey("k")); // still pending
    fs::remove(file());
    write(std::string(kHead) + "<dict><key>old</key><true/></dict></plist>");
    EXPECT_TRUE(settings->synchronize());
    EXPECT_TRUE(open()->boolForKey("old"));
    EXPECT_TRUE(open()->boolForKey("k"));
}

// One call of one kind fails or falls short.
struct Fault {
    const char* name;
    Call call;
    int at; // which call of that kind, from 0
    port::sys::Verdict verdict;
    bool saved;
    bool replaced = saved;
};

const Fault* fault = nullptr;
int callsBefore = 0;

port::sys::Verdict strike(Call call) {
    if (call != fault->call || callsBefore++ != fault->at)
        return {};
    return fault->verdict;
}

TEST_F(Settings, FaultsLeaveTheOldFileWhole) {
    // Opened in turn: the file (twice, before and under the lock: 0 and 2), the lock, the folder, the new
    // file.
    static const Fault rows[] = {{"reading refused", Call::Open, 0, {EACCES}, false},
                                 {"reading fails", Call::Read, 0, {EIO}, false},
                                 {"no lock file", Call::Open, 1, {EROFS}, false},
                                 {"reading under the lock fails", Call::Read, 2, {EIO}, false},
                                 {"short reads", Call::Read, 0, {0, 3}, true},
                                 {"folder cannot be opened", Call::Open, 3, {EMFILE}, false},
                                 {"no new file", Call::Open, 4, {ENOSPC}, false},
                                 {"disk full", Call::Write, 0, {ENOSPC}, false},
                                 {"disk full in the middle", Call::Write, 0, {0, 0}, false},
                                 {"short write", Call::Write, 0, {0, 7}, true},
                                 {"flush fails", Call::Fsync, 0, {EIO}, false},
                                 {"rename fails", Call::Rename, 0, {EIO}, false},
                                 {"flush of the folder fails", Call::Fsync, 1, {EIO}, false, true}};
    for (const Fault& row : rows) {
        const std::string old = std::string(kHead) + "<dict><key>old</key><true/></dict></plist>";
        write(old);
        const auto settings = open();
        settings->setBool(YES, "new");
        fault = &row;
        callsBefore = 0;
        port::sys::setHook(strike);
        EXPECT_EQ(settings->synchronize(), row.saved) << row.name;
        port::sys::setHook(nullptr);
        EXPECT_GT(callsBefore, row.at) << row.name << ": never met";
        EXPECT_EQ(textOf(file()) != old, row.replaced) << row.name;
        EXPECT_TRUE(names(".shared.plist.tmp-").empty()) << row.name;
        EXPECT_TRUE(settings->synchronize()) << row.name; // the change was kept
        const auto again = open();
        EXPECT_TRUE(again->boolForKey("old") && again->boolForKey("new")) << row.name;
    }
}

TEST_F(Settings, WaitsForTheLockOfAnotherProcess) {
    const auto settings = open();
    settings->setBool(YES, "k");
    port::UniqueFd lock(port::sys::open((file() + ".lock").c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    std::atomic<bool> saved = false;
    std::thread saver([&] { saved = settings->synchronize(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(saved);
    EXPECT_TRUE(settings->boolForKey("k")); // readers do not wait
    lock.reset();
    saver.join();
    EXPECT_TRUE(saved);
}

TEST_F(Settings, KilledAtAnyMomentTheyAreWhole) {
    const int rounds = getenv("LFOUNDATION_TORTURE") != nullptr ? 1000 : 30;
    std::mt19937 random(7);
    long lastSaid = 0;
    for (int round = 0; round < rounds; ++round) {
        ChildProcess writer({HostPath("foundation_host"), "torture"});
        // Every other writer is killed among its saves, the others anywhere from their first instruction on.
        if (round % 2 != 0)
            lastSaid = std::stol(writer.ReadLine());
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 15000));
        writer.Kill(SIGKILL);
        ASSERT_EQ(writer.Wait(), 128 + SIGKILL) << "round " << round;
        for (std::string line = writer.ReadLine(1000); !line.empty(); line = writer.ReadLine(1000))
            lastSaid = std::stol(line);
        if (!fs::exists(file("torture")))
            continue;
        const auto settings = open("torture");
        const std::string first = get(settings, "first");
        ASSERT_EQ(first, get(settings, "second")) << "round " << round;
        ASSERT_GE(std::stol(first), lastSaid) << "round " << round;
        ASSERT_TRUE(names("torture.plist.corrupt-").empty()) << "round " << round;
        ASSERT_LE(names(".torture.plist.tmp-").size(), 1U) << "round " << round;
    }
    EXPECT_GT(lastSaid, 0);
}

} // namespace
