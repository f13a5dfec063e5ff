// Settings: what is read, what is merged, and what becomes of the file when something fails.
#include <Foundation/Foundation.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>
#include <thread>

#include "host/SystemCalls.h"
#include "support/Bundle.h"
#include "support/Child.h"
#include "support/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using port::sys::Call;

class Settings : public testing::Test {
protected:
    std::string file() const { return place.Path() + "/shared.plist"; }
    void write(const std::string& text) const { std::ofstream(file(), std::ios::binary) << text; }
    static NSRef<NSUserDefaults> open() { return NSUserDefaults::initWithSuiteName("shared"); }
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

    // How many keys the process said to be safe; all of them must be.
    static int expectSaid(ChildProcess& writer) {
        const auto settings = open();
        int said = 0;
        for (std::string key = writer.ReadLine(1000); !key.empty(); key = writer.ReadLine(1000), ++said)
            EXPECT_TRUE(settings->boolForKey(key.c_str())) << key;
        return said;
    }

    PrivatePlace place;
};

TEST_F(Settings, BooleansAndStringsByStoredValue) {
    const std::pair<bool, std::vector<std::string>> rows[] = {
        {true,
         {"<true/>", "<integer>-7</integer>", "<real>0.25</real>", "<string>YES</string>",
          "<string> +0012</string>"}},
        {false,
         {"<false/>", "<integer>0</integer>", "<string>no</string>", "<string>-0</string>",
          "<string></string>", "<string>/Äpfel/x.app</string>", "<array><true/></array>"}}};
    for (const auto& [expected, values] : rows)
        for (const std::string& value : values) {
            write(PropertyList("<key>k</key>" + value));
            EXPECT_EQ(open()->boolForKey("k"), expected) << value;
            const bool isText = value.starts_with("<string>");
            EXPECT_EQ(get(open(), "k"), isText ? value.substr(8, value.size() - 17) : "(none)");
        }
    EXPECT_FALSE(open()->boolForKey("absent"));
}

TEST_F(Settings, TwoWritersMergeKeyByKey) {
    const auto one = open();
    const auto two = open();
    const auto all = [](const NSRef<NSUserDefaults>& settings) {
        return get(settings, "mine") + " " + get(settings, "yours") + " " + get(settings, "both");
    };
    set(one, "mine", "1");
    set(one, "both", "one");
    set(two, "yours", "2");
    set(two, "both", "two");
    ASSERT_TRUE(one->synchronize() && two->synchronize());
    EXPECT_EQ(all(one) + ", " + all(two), "1 (none) one, 1 2 two");
    ASSERT_TRUE(one->synchronize()); // nothing pending: takes the other's changes in
    one->removeObjectForKey("yours");
    EXPECT_EQ(all(one), "1 (none) two");
    ASSERT_TRUE(one->synchronize() && two->synchronize());
    EXPECT_EQ(all(two), "1 (none) two");
}

TEST_F(Settings, EditsOfAnArrayGoOverWhatOthersWrote) {
    const auto texts = [](const NSRef<NSUserDefaults>& settings) {
        std::string all;
        const auto array = settings->arrayForKey("list");
        for (unsigned long index = 0; array && index < array->count(); ++index)
            all += array->objectAtIndex(index)->UTF8String();
        return all;
    };
    const auto one = open();
    const auto two = open();
    one->port_editArray("a", nullptr, "list");
    one->port_editArray("b", "x", "list");
    two->port_editArray("c", nullptr, "list");
    EXPECT_EQ(texts(one) + " " + texts(two), "ab c");
    ASSERT_TRUE(one->synchronize() && two->synchronize());
    EXPECT_EQ(texts(two), "abc");
    two->port_editArray("d\x01", nullptr, "list");
    two->port_editArray("c", "b", "list");
    one->setObject(*NSMutableArray::array(), "list"); // a new value, which edits then change
    one->port_editArray("b", "a", "list");
    one->port_editArray("e", "b", "list");
    EXPECT_EQ(texts(one) + " " + texts(two), "e ac");
    ASSERT_TRUE(two->synchronize() && texts(open()) == "ac" && one->synchronize());
    EXPECT_EQ(texts(open()), "e");
}

TEST_F(Settings, ProcessesAndThreadsAtTheSameTimeLoseNothing) {
    ChildProcess one({HostPath("foundation_host"), "one", "30"});
    ChildProcess two({HostPath("foundation_host"), "two", "30"});
    for (ChildProcess* writer : {&one, &two}) {
        EXPECT_EQ(writer->Wait(), 0);
        EXPECT_EQ(expectSaid(*writer), 60);
    }
}

TEST_F(Settings, FoldersModesAndLinksStayAsTheyAre) {
    InChild([&] {
        static char other[] = "other";
        program_invocation_short_name = other;
        EXPECT_EQ(NSUserDefaults::standardUserDefaults()->port_path(),
                  place.Path() + "/foundation_test.plist");
    });
    umask(0);
    const std::string folder = place.Path() + "/deep";
    const std::string saved = folder + "/er/shared.plist";
    const std::string real = folder + "/real";
    setenv("XDG_CONFIG_HOME", (folder + "/er").c_str(), 1);
    const auto settings = open();
    settings->removeObjectForKey("absent");
    EXPECT_TRUE(settings->synchronize() && !fs::exists(folder)) << "there was nothing to write";
    settings->setBool(true, "k");
    EXPECT_TRUE(settings->synchronize());
    for (const auto& [path, mode] :
         {std::pair{folder, 0700}, {folder + "/er", 0700}, {saved, 0600}, {saved + ".lock", 0600}})
        EXPECT_EQ(fs::status(path).permissions(), fs::perms(mode)) << path;
    fs::remove(saved);
    fs::create_symlink("../second", saved);
    fs::create_symlink(real, folder + "/second"); // to nothing at first
    const uid_t owner = geteuid() == 0 ? 1 : geteuid();
    for (const auto& [text, mode] : {std::pair{"first", 0600}, {"second", 0640}}) {
        set(settings, "k", text);
        EXPECT_TRUE(settings->synchronize());
        EXPECT_TRUE(fs::is_symlink(saved) && fs::is_regular_file(real));
        EXPECT_EQ(fs::status(real).permissions(), fs::perms(mode));
        EXPECT_EQ(get(open(), "k"), text);
        fs::permissions(real, fs::perms(0640));
        struct stat status;
        EXPECT_EQ(stat(real.c_str(), &status), 0);
        EXPECT_TRUE(text == std::string("first") || status.st_uid == owner) << "root gave it to itself";
        EXPECT_EQ(chown(real.c_str(), owner, static_cast<gid_t>(-1)), 0);
    }
    fs::create_hard_link(real, folder + "/before");
    set(settings, "k", "second");
    EXPECT_TRUE(settings->synchronize());
    EXPECT_TRUE(fs::equivalent(real, folder + "/before")) << "written again though nothing changed";
}

TEST_F(Settings, DamagedFilesAreKeptAside) {
    const std::string rows[] = {"", "garbage", "<plist version=\"1.0\"><dict><key>k</key><true/>",
                                "<plist version=\"1.0\"><array/></plist>"};
    for (const std::string& text : rows) {
        SCOPED_TRACE(text.substr(0, 80));
        write(text);
        testing::internal::CaptureStderr();
        const auto settings = open();
        int error = 0;
        EXPECT_FALSE(settings->port_isReadable(&error) || settings->boolForKey("k") ||
                     settings->synchronize());
        EXPECT_EQ(error, EBADMSG);
        EXPECT_EQ(testing::internal::GetCapturedStderr() + FileText(file()), text)
            << "reading changes nothing";
        testing::internal::CaptureStderr();
        settings->setBool(true, "k");
        EXPECT_TRUE(settings->synchronize() && open()->boolForKey("k") && settings->port_isReadable(&error));
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
        const auto kept = names("shared.plist.corrupt-");
        ASSERT_EQ(kept.size(), 1U);
        EXPECT_EQ(FileText(place.Path() + "/" + kept[0]), text);
        fs::remove(place.Path() + "/" + kept[0]);
    }
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
    return call == fault->call && callsBefore++ == fault->at ? fault->verdict : port::sys::Verdict();
}

TEST_F(Settings, FaultsLeaveTheOldFileWhole) {
    // Opened in turn: the file before and under the lock (0 and 2), and the lock.
    static const Fault rows[] = {{"reading refused", Call::Open, 0, {EACCES}, false},
                                 {"no lock file", Call::Open, 1, {EROFS}, false},
                                 {"reading under the lock fails", Call::Read, 2, {EIO}, false},
                                 {"short reads", Call::Read, 0, {0, 3}, true},
                                 {"disk full", Call::Write, 0, {ENOSPC}, false},
                                 {"short write", Call::Write, 0, {0, 7}, true},
                                 {"flush fails", Call::Fsync, 0, {EIO}, false},
                                 {"rename fails", Call::Rename, 0, {EIO}, false},
                                 {"flush of the folder fails", Call::Fsync, 1, {EIO}, false, true}};
    const std::string old = PropertyList("<key>old</key><true/>");
    fs::create_directory(file());
    EXPECT_FALSE(open()->synchronize());
    EXPECT_TRUE(fs::remove(file())) << "the folder in the place of the file was not left alone";
    for (const Fault& row : rows) {
        write(old);
        const auto settings = open();
        settings->setBool(true, "new");
        fault = &row;
        callsBefore = 0;
        port::sys::setHook(strike);
        EXPECT_EQ(settings->synchronize(), row.saved) << row.name;
        port::sys::setHook(nullptr);
        EXPECT_GT(callsBefore, row.at) << row.name << ": never met";
        EXPECT_EQ(FileText(file()) != old, row.replaced) << row.name;
        EXPECT_TRUE(names(".shared.plist.tmp-").empty()) << row.name;
        EXPECT_TRUE(settings->synchronize()) << row.name; // the change was kept
        EXPECT_TRUE(open()->boolForKey("old") && open()->boolForKey("new")) << row.name;
    }
}

TEST_F(Settings, WhatCannotBeReadIsNotTakenForAbsent) {
    static const Fault rows[] = {{"", Call::Open, 0, {EMFILE}, false}, {"", Call::Open, 0, {ENOMEM}, false},
                                 {"", Call::Open, 0, {EACCES}, false}, {"", Call::Read, 0, {EIO}, false},
                                 {"", Call::Read, 0, {EINTR}, false},  {"", Call::Fsync, 0, {EFBIG}, false}};
    for (const Fault& row : rows) {
        const int expected = row.verdict.error;
        const std::string old = PropertyList("<key>old</key><true/>" + Entry("other", "1"));
        write(expected == EFBIG ? old + std::string(5 << 20, ' ') : old);
        fault = &row;
        port::sys::setHook(
            [](Call call) { return call == fault->call ? fault->verdict : port::sys::Verdict(); });
        const auto settings = open();
        int error = 0;
        settings->setBool(true, "old");
        for (const char* key : {"old", "other"})
            settings->removeObjectForKey(key);
        set(settings, "new", "2");
        EXPECT_FALSE(settings->port_isReadable(&error) || settings->synchronize());
        EXPECT_EQ(error, expected);
        port::sys::setHook(nullptr);
        write(old);
        EXPECT_EQ(get(settings, "other") + get(settings, "new"), "12") << expected;
        EXPECT_TRUE(settings->boolForKey("old") && settings->port_isReadable(&error) && error == 0);
        settings->removeObjectForKey("other");
        EXPECT_TRUE(settings->synchronize() && open()->boolForKey("old"));
        EXPECT_EQ(get(open(), "other") + get(open(), "new"), "(none)2") << expected;
    }
}

TEST_F(Settings, RemovedTheyLeaveNothing) {
    const auto settings = open();
    EXPECT_TRUE(settings->port_removeAll() && names("").empty());
    const std::string real = place.Path() + "/real";
    fs::create_symlink(real, file());
    for (const char* name : {"real.corrupt-1.2", ".real.tmp-1-2", "shared.plist2"})
        std::ofstream(place.Path() + "/" + name) << "x";
    settings->setBool(true, "k");
    EXPECT_TRUE(settings->synchronize() && fs::exists(real));
    settings->setBool(false, "pending");
    EXPECT_TRUE(settings->port_removeAll() && !settings->boolForKey("k") && settings->synchronize());
    EXPECT_EQ(names(""), std::vector<std::string>{"shared.plist2"});
    fs::create_directory(file());
    EXPECT_FALSE(settings->port_removeAll());
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(Settings, WhatCannotBeStoredHoldsNothingUp) {
    const auto settings = open();
    const NSRef<NSMutableArray> texts = NSMutableArray::array();
    texts->addObject(NSString::stringWithUTF8String("a\x1F"));
    set(settings, "k", "before");
    for (const std::string& text :
         {std::string("/a\x01.app"), std::string("\xEF\xBF\xBE"), std::string(2 << 20, 'x')})
        set(settings, "k", text.c_str());
    set(settings, "k\x02", "text");
    settings->setObject(*texts, "k");
    EXPECT_TRUE(settings->synchronize());
    EXPECT_EQ(get(open(), "k"), "before");
    for (const char* key : {"a", "b", "c", "d", "e"}) // too much together
        set(settings, key, std::string(1000000, 'x').c_str());
    set(settings, "f", "x");
    EXPECT_FALSE(settings->synchronize());
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(get(open(), "f"), "x");
    settings->removeObjectForKey("a");
    EXPECT_TRUE(settings->synchronize() && open()->stringForKey("e"));
}

TEST_F(Settings, KilledAtAnyMomentTheyAreWhole) {
    const int rounds = getenv("LFOUNDATION_TORTURE") != nullptr ? 1000 : 30;
    std::mt19937 random(7);
    int said = 0;
    for (int round = 0; round < rounds; ++round) {
        ChildProcess writer({HostPath("foundation_host"), std::to_string(round), "1000000"});
        // Every other writer is killed among its saves, the others anywhere from their first instruction on.
        if (round % 2 != 0)
            writer.ReadLine();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 15000));
        writer.Kill(SIGKILL);
        ASSERT_EQ(writer.Wait(), 128 + SIGKILL) << "round " << round;
        said += expectSaid(writer);
        ASSERT_TRUE(names("shared.plist.corrupt-").empty()) << "round " << round;
        ASSERT_LE(names(".shared.plist.tmp-").size(), 1U) << "round " << round;
    }
    EXPECT_GT(said, 0);
}

} // namespace
