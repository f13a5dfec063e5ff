// Bookmarks: what becomes of them from one run of a program to the next, and what the manager does in one.
#include "files/LSandboxBookmarkManager.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <port/UniqueFd.h>
#include <random>
#include <sys/inotify.h>
#include <unistd.h>

#include "files/LFile.h"
#include "foundation/BookmarkSearch.h"
#include "support/Bundle.h"
#include "support/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using Manager = LSandboxBookmarkManager;

void writeFile(const std::string& path, const std::string& text = "") {
    std::ofstream(path) << text;
}

// What happens in a folder from now on.
class Watch {
public:
    Watch(const std::string& path, std::uint32_t events) {
        inotify_add_watch(fd.get(), path.c_str(), events);
    }
    long count(std::uint32_t wanted) const {
        alignas(inotify_event) char bytes[1 << 16];
        const ssize_t size = read(fd.get(), bytes, sizeof bytes);
        long found = 0;
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(bytes + at);
            found += (event->mask & wanted) != 0;
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
        return found;
    }

private:
    const port::UniqueFd fd{inotify_init1(IN_NONBLOCK)};
};

class Bookmarks : public testing::Test {
protected:
    using Arguments = std::vector<std::string>;

    // The output of one life of the program, which may be without the privilege to find files by handle.
    static std::string run(Arguments arguments = {}, bool isPrivileged = true) {
        arguments.insert(arguments.begin(), HostPath("bookmark_host"));
        if (!isPrivileged && geteuid() == 0)
            arguments.insert(arguments.begin(),
                             {"/usr/bin/setpriv", "--bounding-set=-dac_read_search,-dac_override"});
        ChildProcess child(std::move(arguments));
        std::string said = child.ReadAll(200000);
        EXPECT_EQ(child.Wait(), 0);
        return said;
    }
    // Makes so many files and the arguments that add them.
    Arguments makeFiles(int count) const {
        Arguments arguments;
        for (int i = 0; i < count; ++i) {
            arguments.push_back(std::to_string(i));
            arguments.push_back(root + "/" + arguments.back());
            writeFile(arguments.back());
        }
        return arguments;
    }
    std::string settingsFile() const { return place.Path() + "/bookmark_host.plist"; }
    NSRef<NSUserDefaults> settings() const { return NSUserDefaults::initWithSuiteName("bookmark_host"); }
    unsigned long countOfKeys() const { return settings()->arrayForKey("SECURITY_BOOKMARK_KEYS")->count(); }

    PrivatePlace place;      // home, which is the sandbox, and settings
    TemporaryFolder outside; // what the user granted
    const std::string root = outside.root;
};

TEST_F(Bookmarks, FollowTheirFilesThroughRestarts) {
    const std::string file = root + "/here/file";
    const std::string folder = root + "/here";
    struct Row {
        const char* name;
        std::string granted;
        std::function<void()> change;
        std::string found; // empty: not any more
    };
    const std::string other = root + "/other";
    const Row rows[] = {
        {"renamed", file, [&] { fs::rename(file, file + "2"); }, "file " + file + "2"},
        {"moved below", file, [&] { fs::rename(file, folder + "/a/b/x"); }, "file " + folder + "/a/b/x"},
        {"moved with its folder", file, [&] { fs::rename(folder, other + "/x"); },
         "file " + other + "/x/file"},
        {"deleted", file, [&] { fs::remove(file); }, ""},
        {"deleted with its folder", file, [&] { fs::remove_all(folder); }, ""},
        {"replaced", file, [&] { writeFile(file + "~"), fs::rename(file + "~", file); }, "file " + file},
        {"made anew", file, [&] { fs::remove(file), writeFile(file); }, "file " + file},
        {"now a folder", file, [&] { fs::remove(file), fs::create_directory(file); }, "folder " + file},
        {"another in its inode", file, [&] { fs::remove(file), writeFile(file + "3"); }, ""},
        {"moved folder", folder, [&] { fs::rename(folder, other + "/y"); }, "folder " + other + "/y"},
        {"deleted folder", folder, [&] { fs::remove_all(folder); }, ""}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::create_directories(folder + "/a/b");
        fs::create_directory(other);
        writeFile(file);
        EXPECT_EQ(run({"key", row.granted, "other", other}), "key\nother\n");
        row.change();
        // It is found with the kernel's help and, from the same record, without; then under yet another name from
        // the record that the last run made.
        const std::string before = FileText(settingsFile());
        const std::string unchanged = "folder " + other + " 1 other\n";
        std::string found = row.found;
        for (const int life : {2, 3, 4}) {
            std::string said = run({}, life == 2);
            ASSERT_NE(said.find(unchanged), said.npos) << said;
            said.erase(said.find(unchanged), unchanged.size());
            EXPECT_EQ(said, found.empty() ? "" : found + " 1 key\n") << "life " << life;
            if (life == 2)
                writeFile(settingsFile(), before);
            if (life != 3 || found.empty())
                continue;
            const std::string path = found.substr(found.find('/'));
            fs::rename(path, path + "-new");
            found += "-new";
        }
        EXPECT_EQ(countOfKeys(), row.found.empty() ? 1U : 2U);
        EXPECT_EQ(static_cast<bool>(settings()->dataForKey("key")), !row.found.empty());
        for (const std::string& left : {folder, folder + "-new", other, settingsFile()})
            fs::remove_all(left);
    }
}

TEST_F(Bookmarks, RecordsThatWereCutOrAlteredAreRefused) {
    using port::decodeBookmark;
    const port::BookmarkRecord record{{1, 2, 3, 4}, "/some/path", 5, "handle"};
    const std::string bytes = port::encodeBookmark(record);
    EXPECT_EQ(port::encodeBookmark(decodeBookmark(bytes).value()), bytes);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        EXPECT_FALSE(decodeBookmark(bytes.substr(0, length))) << length;
        for (int bit = 0; bit < 8; ++bit) {
            std::string altered = bytes;
            altered[length] = static_cast<char>(altered[length] ^ (1 << bit));
            EXPECT_FALSE(decodeBookmark(altered)) << length << " " << bit;
        }
    }
    EXPECT_FALSE(decodeBookmark(bytes + "x"));
}

TEST_F(Bookmarks, ADamagedEntryCostsNoOther) {
    const std::string good = "file " + root + "/1 1 1\n";
    const std::string rows[] = {"<data></data>", "<data>Qk9PS01BUks=</data>", "<string>text</string>",
                                "<data>" + std::string(100000, 'A') + "</data>"};
    for (const std::string& value : rows) {
        SCOPED_TRACE(value.substr(0, 60));
        ASSERT_EQ(run(makeFiles(2)), "0\n1\n");
        std::string text = FileText(settingsFile());
        const std::size_t begin = text.find("<data>", text.find("<key>0</key>"));
        const std::size_t end = text.find("</data>", begin) + 7;
        text.replace(begin, end - begin, value);
        // Values of other types among the keys, and a key without a bookmark.
        text.replace(text.find("<array>"), 7, "<array><integer>1</integer><string>none</string>");
        writeFile(settingsFile(), text);
        EXPECT_EQ(run(), good);
        EXPECT_EQ(countOfKeys(), 1U);
        EXPECT_FALSE(settings()->dataForKey("0") || settings()->stringForKey("0"));
    }
}

TEST_F(Bookmarks, SettingsThatCannotBeWrittenAreSeen) {
    ASSERT_EQ(run(makeFiles(1)), "0\n");
    const std::string before = FileText(settingsFile());
    // Stands in for a folder that may not be written to, which the superuser could.
    fs::remove(settingsFile() + ".lock");
    fs::create_directory(settingsFile() + ".lock");
    EXPECT_EQ(run({"key", root}), "-\n");
    fs::rename(root + "/0", root + "/x"); // needs a fresh bookmark, which cannot be stored
    EXPECT_EQ(run(), "");
    EXPECT_EQ(FileText(settingsFile()), before);
    fs::remove(settingsFile() + ".lock");
    EXPECT_EQ(run(), "file " + root + "/x 1 0\n");
    // Room for one bookmark more, but not under a long key: it is not kept, and holds up no other.
    std::string full = "<plist><dict>";
    for (const int length : {1'048'000, 1'048'000, 1'048'000, 1'048'000, 1'304})
        full +=
            "<key>" + std::to_string(full.size()) + "</key><string>" + std::string(length, 'x') + "</string>";
    writeFile(settingsFile(), full + "</dict></plist>");
    EXPECT_EQ(run({std::string(259, 'k'), root, "short", root + "/x"}), "-\nshort\n");
    EXPECT_EQ(countOfKeys(), 1U);
}

TEST_F(Bookmarks, WhatCannotBeLookedAtIsKept) {
    fs::create_directory(root + "/closed");
    writeFile(root + "/closed/file");
    ASSERT_EQ(run({"key", root + "/closed/file", "bad \x01 key", root}), "key\n-\n");
    const std::string before = FileText(settingsFile());
    fs::permissions(root + "/closed", fs::perms::none);
    EXPECT_EQ(run({}, false), "");
    fs::permissions(root + "/closed", fs::perms::owner_all);
    fs::rename(settingsFile(), settingsFile() + "-");
    fs::create_directory(settingsFile()); // cannot be read
    EXPECT_EQ(run(), "");
    fs::remove(settingsFile());
    fs::rename(settingsFile() + "-", settingsFile());
    EXPECT_EQ(FileText(settingsFile()), before);
    EXPECT_EQ(run(), "file " + root + "/closed/file 1 key\n");
}

TEST_F(Bookmarks, PathsAreBytesAndNeverCut) {
    const std::string odd = root + "/\xFF";
    const std::string deep = root + "/" + std::string(200, 'd') + "/" + std::string(100, 'f');
    const std::string found = "file " + odd + " 1 odd\n";
    fs::create_directory(deep.substr(0, deep.size() - 101));
    for (const std::string& file : {odd, deep})
        writeFile(file);
    EXPECT_EQ(run({"odd", odd, "deep", deep}), "odd\n-\n");
    EXPECT_EQ(run(), found);
    EXPECT_EQ(countOfKeys(), 1U);
    fs::rename(odd, deep + "2"); // where no item can follow, and nothing is lost
    EXPECT_EQ(run(), "");
    fs::rename(deep + "2", odd);
    EXPECT_EQ(run(), found);
}

TEST_F(Bookmarks, OneLookAtAFolderAndNotForEver) {
    run(makeFiles(30));
    port::BookmarkRecord record;
    ASSERT_TRUE(port::makeBookmark(root + "/0", record));
    fs::remove_all(root);
    fs::create_directory(root);
    const Watch watch(root, IN_OPEN | IN_ACCESS);
    EXPECT_EQ(run({}, false), "");
    EXPECT_EQ(watch.count(IN_ACCESS), 1);
    EXPECT_EQ(countOfKeys(), 0U);
    std::string path;
    bool stale = false;
    record.handle.clear();
    EXPECT_EQ(ETIMEDOUT, port::BookmarkSearch(std::chrono::milliseconds(0)).find(record, path, stale));
}

TEST_F(Bookmarks, TwoProcessesKeepEachOthersKeys) {
    Arguments first = makeFiles(60);
    Arguments second(first.begin() + 60, first.end());
    first.resize(60);
    first.insert(first.begin(), HostPath("bookmark_host"));
    ChildProcess other(first);
    run(second);
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(countOfKeys(), 60U);
}

TEST_F(Bookmarks, AThousandOfThem) {
    const TemporaryFolder memory("/dev/shm"); // two thousand times on a disk takes its time
    setenv("XDG_CONFIG_HOME", memory.root.c_str(), 1);
    run(makeFiles(1000));
    EXPECT_EQ(countOfKeys(), 1000U);
    for (int i = 0; i < 1000; i += 10) {
        fs::rename(root + "/" + std::to_string(i), root + "/x" + std::to_string(i));
        fs::remove(root + "/" + std::to_string(i + 1));
    }
    const Watch watch(memory.root, IN_MOVE);
    const std::string said = run();
    EXPECT_EQ(watch.count(IN_MOVED_TO), 1) << "saves";
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 900);
    EXPECT_NE(said.find(root + "/x990 1 990\n"), said.npos);
    EXPECT_EQ(countOfKeys(), 900U);
}

TEST_F(Bookmarks, SurviveAKillAtAnyMoment) {
    std::mt19937 random(5);
    Arguments command = makeFiles(500);
    command.insert(command.begin(), HostPath("bookmark_host"));
    for (int round = 0; round < 12; ++round) {
        ChildProcess child(command);
        std::string last = child.ReadLine();
        usleep(static_cast<useconds_t>(random() % 20000));
        child.Kill(SIGKILL);
        ASSERT_EQ(child.Wait(), 128 + SIGKILL);
        for (std::string key = last; !key.empty(); key = child.ReadLine(1000))
            last = key;
        EXPECT_GT(countOfKeys(), std::stoul(last)) << "round " << round;
        EXPECT_NE(run().find("file " + root + "/" + last + " 1 " + last + "\n"), std::string::npos) << last;
        fs::remove(settingsFile());
    }
}

// A URL of somebody else's that may know nothing of security scopes.
class OtherURL final : public NSURL {
public:
    explicit OtherURL(const std::string& path) : NSURL(path.c_str()) {}
    bool respondsToSelector(const char*) const override { return scoped; }
    bool startAccessingSecurityScopedResource() override { return ++users < 0; } // NO, which must not matter
    void stopAccessingSecurityScopedResource() override { --users; }

    bool scoped = false;
    int users = 0;
};

TEST_F(Bookmarks, ItemsCountTheirUsersAndKeys) {
    const std::string folder = root + "/ab";
    const std::string file = folder + "/file";
    const char* const szFile = file.c_str();
    const auto add = [](const std::string& path, NSURL* url, const char* key = nullptr) {
        return Manager::AddFilePath(path.c_str(), url, true, key != nullptr, key);
    };
    fs::create_directory(folder);
    fs::create_directory(folder + "c");
    writeFile(file);
    const NSRef<OtherURL> url(new OtherURL(file));
    Manager::Create();
    const Manager& manager = *Manager::pInstance;
    EXPECT_FALSE(add(file, url.get(), "key") || add(file, nullptr, "key"));
    url->scoped = true;
    EXPECT_FALSE(Manager::AddFilePathToSettings(szFile, true, "key"));
    EXPECT_TRUE(add(place.Path() + "/inside", url.get(), "key"));
    EXPECT_TRUE(manager.loFiles.IsEmpty() && manager.pKeys->count() == 0);

    EXPECT_TRUE(add(file, url.get()) && add(folder + "/FILE", url.get()));
    EXPECT_TRUE(url->users == 1 && Manager::IsAccessStarted(szFile));
    EXPECT_FALSE(Manager::StartAccessingSecurityScopedResource(szFile));
    EXPECT_TRUE(Manager::StopAccessingSecurityScopedResource(szFile));
    EXPECT_FALSE(Manager::StopAccessingSecurityScopedResource(szFile) || Manager::IsAccessStarted(szFile));
    EXPECT_TRUE(Manager::StartAccessingSecurityScopedResource(szFile));
    Manager::Release(szFile); // saved nowhere and used by nobody
    EXPECT_TRUE(url->users == 0 && manager.InstanceGetBookmark(szFile) == nullptr);

    EXPECT_TRUE(add(file, url.get(), "key"));
    EXPECT_TRUE(Manager::AddFilePathToSettings(szFile, false, "second"));
    EXPECT_TRUE(Manager::AddFilePathToSettings(szFile, false, "key"));
    EXPECT_FALSE(Manager::AddFilePathToSettings(szFile, false, "no \xFF text"));
    LSandboxBookmarkItem& item = *manager.InstanceGetBookmark(szFile);
    EXPECT_TRUE(item.bAddFlag && item.bSavedToSettings && item.nRetainCount == 2 &&
                manager.pKeys->count() == 2);
    const std::string key(300, 'k');
    EXPECT_TRUE(item.AddKey(key.c_str()) && !item.AddKey(key.substr(41).c_str()));
    EXPECT_TRUE(item.RemoveKey(key.c_str()) && !item.RemoveKey(key.c_str()));
    Manager::Retain(szFile);
    for (const int users : {1, 1, 0, 0}) {
        Manager::Release(szFile);
        EXPECT_EQ(url->users, users);
    }
    const auto defaults = NSUserDefaults::initWithSuiteName("bookmark_test");
    EXPECT_TRUE(defaults->dataForKey("key") && defaults->dataForKey("second"));

    EXPECT_TRUE(add(folder, url.get()));
    for (const std::string& path : {file, folder, folder + "c", root + "/AB/absent"})
        EXPECT_TRUE(Manager::IsAccessStarted(path.c_str()) &&
                    manager.InstanceGetParentBookmark(path.c_str()) != nullptr)
            << path;
    const std::string absent = root + "/missing"; // added as a file, then looked for among the folders
    EXPECT_TRUE(add(absent, url.get()) && !manager.loFiles.IsEmpty());
    EXPECT_FALSE(manager.InstanceGetBookmark(absent.c_str()) || Manager::IsAccessStarted(absent.c_str()));
    Manager::Destroy();
    EXPECT_TRUE(url->users == 0 && Manager::pInstance == nullptr);
}

TEST_F(Bookmarks, PathsOfTheSandbox) {
    const std::string home = place.Path();
    fs::create_directory_symlink(root, home + "/Downloads");
    fs::create_directory_symlink(home + "/own", home + "/Inner");
    fs::create_directory_symlink("/nowhere/at/all", home + "/Broken");
    fs::create_directory(home + "/own");
    writeFile(root + "/old.txt");
    const std::pair<std::string, std::string> rows[] = {{"Downloads/old.txt", root + "/old.txt"},
                                                        {"Downloads/new.txt", root + "/new.txt"},
                                                        {"Downloads", root},
                                                        {"x/Downloads/y/z", root + "/y/z"},
                                                        {"own/new.txt", ""},
                                                        {"Inner/new.txt", ""},
                                                        {"Broken/new.txt", ""},
                                                        {"new.txt", ""}};
    for (const auto& [path, expected] : rows) {
        char szPath[LPathBufferSize] = "";
        LFile::_MakeFilePath(szPath, home.c_str(), path.c_str(), "");
        EXPECT_TRUE(LFile::IsPathInSandbox(szPath));
        EXPECT_EQ(Manager::IsAccessAllowedByEntitlement(szPath, true), expected.empty()) << path;
        EXPECT_EQ(LFile::MakeNonSandboxedFilePath(szPath, szPath), !expected.empty()) << path;
        EXPECT_EQ(szPath, expected) << path;
    }
    EXPECT_TRUE(LFile::IsPathInSandbox(("/TMP" + home.substr(4) + "X").c_str()));
    EXPECT_FALSE(Manager::IsAccessAllowedByEntitlement(root.c_str(), false));
}

TEST(FileTypes, OfPanelFilters) {
    using namespace std::string_literals;
    const std::pair<std::string, std::string> rows[] = {
        {"Video\0*.mp4;*.mov\0All\0*.*\0\0"s, "mp4 mov "},
        {"A\0*.tar.gz;readme;x*.b\0\0"s, "tar.gz b "},
        {"\0A\0*.a\0\0"s, ""},
        {"A\0*.\0B\0*.\xFF;*.b\0\0"s, " b "},
        {"A\0*."s + std::string(300, 'x') + "\0\0"s, std::string(259, 'x') + " "}};
    for (const auto& [filter, expected] : rows) {
        const NSRef<NSMutableArray> types = NSMutableArray::array();
        ParseFileTypes(types.get(), filter.c_str());
        std::string found;
        for (unsigned long i = 0; i < types->count(); ++i)
            found.append(types->objectAtIndex(i)->UTF8String()).append(" ");
        EXPECT_EQ(found, expected) << filter;
    }
}

} // namespace
