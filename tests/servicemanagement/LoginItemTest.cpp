// Login items: an application of a test's own switches the helper in its bundle on and off, in a private home.
#include <csignal>
#include <gtest/gtest.h>
#include <port/login_helper.h>
#include <thread>

#include "support/Bundle.h"
#include "support/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

// What a session makes of an entry, by the rules for such files: the escapes of a text, then the quotes of a command
// line, then its codes.
constexpr const char* kSession = R"py(
import re, sys
entry = dict(line.split('=', 1) for line in open(sys.argv[1], encoding='utf-8', newline='\n').read().split('\n')[1:-1])
assert all(c >= ' ' for value in entry.values() for c in value)
text = lambda value: re.sub(r'\\(.)', lambda m: {'s': ' ', 'n': '\n', 't': '\t', 'r': '\r', '\\': '\\'}[m[1]], value)
word = re.fullmatch(r'"((?:[^"`$\\]|\\["`$\\])*)"', text(entry['Exec']), re.S)[1]
program = re.sub(r'%(.)', lambda m: {'%': '%'}[m[1]], re.sub(r'\\(.)', r'\1', word, flags=re.S))
assert program == text(entry['TryExec']) and entry['Type'] == 'Application'
sys.stdout.buffer.write(program.encode())
)py";

class LoginItem : public testing::Test {
protected:
    LoginItem() {
        setenv("XDG_CONFIG_HOME", "relative", 1);
        makeApplication(place.Path());
    }
    ~LoginItem() override { say("off"); }

    // An application in that folder, with the helper in its bundle.
    void makeApplication(const std::string& folder) {
        const std::string bundle = MakeBundleAt(folder, "App", host, Entry("CFBundleName", "An\tApp"));
        helper = MakeBundleAt(bundle + "/Contents/Library/LoginItems", "Helper", host,
                              Entry("CFBundleIdentifier", identifier)) +
                 "/Contents/MacOS/Helper";
        program = bundle + "/Contents/MacOS/App";
    }
    // What the application says; "PID" stands for the helper's process.
    std::string say(const std::string& words, const std::string& of = identifier) {
        ChildProcess application({program, words, of});
        std::string line = application.ReadLine(30000);
        const std::size_t at = line.find("process ") + 8;
        process = std::atoi(line.c_str() + at);
        return process == 0 ? line : line.replace(at, std::to_string(process).size(), "PID");
    }
    std::string read() const {
        ChildProcess python({"/usr/bin/env", "python3", "-c", kSession, entry});
        return python.ReadAll();
    }

    PrivatePlace place;
    const std::string host = HostPath("servicemanagement_host");
    inline static const std::string identifier = "com.example.helper" + std::to_string(getpid());
    const std::string entry = place.Path() + "/.config/autostart/" + identifier + ".desktop";
    std::string program, helper;
    pid_t process = 0;
};

TEST_F(LoginItem, FromOnToOff) {
    EXPECT_EQ(say("ask"), "done state 0, not served, process 0");
    const std::string served = "done state 4, served, process PID";
    ASSERT_EQ(say("on"), served);
    EXPECT_EQ(read(), helper);
    const pid_t first = process;
    EXPECT_NE(getsid(first), getsid(0));
    std::ofstream(entry, std::ios::app) << "X-GNOME-Autostart-Delay=9\n"; // as the user may
    EXPECT_EQ(say("on"), served);
    EXPECT_EQ(process, first);
    EXPECT_TRUE(FileText(entry).ends_with("Delay=9\n"));
    // An update replaces the program: the helper of before goes.
    fs::copy_file(helper, helper + ".new");
    fs::rename(helper + ".new", helper);
    ASSERT_EQ(say("on"), served);
    EXPECT_NE(process, first);
    EXPECT_FALSE(fs::exists("/proc/" + std::to_string(first) + "/exe"));
    // The one that a login has left idle goes, too; one of another login stays.
    kill(process, SIGKILL);
    ChildProcess idle({helper}), elsewhere({"/usr/bin/env", "XDG_RUNTIME_DIR=/elsewhere", helper});
    while (say("ask") != "done state 4, not served, process PID") {
    }
    EXPECT_EQ(process, idle.Pid());
    ChildProcess racer({program, "on", identifier});
    EXPECT_EQ(say("on"), served);
    EXPECT_EQ(racer.ReadLine(), "done state 4, served, process " + std::to_string(process));
    EXPECT_EQ(idle.Wait(0), 128 + SIGTERM);
    fs::remove_all(fs::path(helper).parent_path().parent_path());
    EXPECT_EQ(say("off"), "done state 0, not served, process 0there is no such helper in the application's "
                          "Contents/Library/LoginItems, nor installed");
    EXPECT_TRUE(fs::is_empty(fs::path(entry).parent_path()));
    EXPECT_EQ(elsewhere.Wait(0), -1);
}

TEST_F(LoginItem, WhatTheUserHasSwitchedOffStays) {
    setenv("XDG_CURRENT_DESKTOP", "Desk:GNOME", 1);
    const std::string start = "[Desktop Entry]\nExec=x\n";
    for (const char* line :
         {"Hidden=true", "X-GNOME-Autostart-enabled=false", "X-MATE-Autostart-enabled = false",
          "OnlyShowIn=KDE;Other;", "NotShowIn=KDE;Desk;"}) {
        fs::create_directories(fs::path(entry).parent_path());
        std::ofstream(entry) << start << line << "\n";
        EXPECT_NE(say("on").find("the user has switched it off: "), std::string::npos) << line;
        EXPECT_EQ(say("off").find("done "), 0U) << line;
        EXPECT_EQ(FileText(entry), start + line + "\n");
        EXPECT_EQ(process, 0);
    }
    unsetenv("XDG_CURRENT_DESKTOP");
    fs::remove(entry);
}

TEST_F(LoginItem, EveryPathThatAnEntryCanHold) {
    for (const char* name : {" a b ", "q\"u'o", "ba`ck\\slash\\\\n", "$HOME", "per%cent%20%%",
                             "tab\tnew\nline\rs", "\xc3\x84pfel", "-;&|<>*?#()~"}) {
        makeApplication(place.Path() + "/" + name);
        EXPECT_EQ(say("on"), "done state 4, served, process PID");
        EXPECT_EQ(read(), helper);
        port_login_item_t item;
        port_session_entry((identifier + ".desktop").c_str(), &item);
        EXPECT_EQ(item.program, helper);
    }
    for (const char* name : {"equals=", "\x01", "\x7f", "\xff"}) {
        makeApplication(place.Path() + "/" + name);
        EXPECT_NE(say("on").find("process PIDno session can start "), std::string::npos) << name;
    }
}

TEST_F(LoginItem, WhatIsRefused) {
    const std::string sticky = place.Path() + "/sticky", open = place.Path() + "/open";
    const std::pair<std::string, std::string> rows[] = {
        {sticky,
         sticky + "/App.app/Contents/Library/LoginItems/Helper.app is in a temporary folder, " + sticky},
        {open, "others may change " + open},
    };
    for (const auto& [folder, why] : rows) {
        makeApplication(folder);
        fs::permissions(sticky, fs::perms::all | fs::perms::sticky_bit);
        if (fs::exists(open))
            fs::permissions(open, fs::perms::all);
        EXPECT_EQ(say("on"), "Operation not permitted: refused state 0, not served, process 0" + why);
    }
    makeApplication(place.Path() + "/kept");
    setenv("TMPDIR", (place.Path() + "/kept").c_str(), 1);
    EXPECT_NE(say("on").find("is in a temporary folder, " + place.Path() + "/kept"), std::string::npos);
    unsetenv("TMPDIR");
    setenv("XDG_CONFIG_HOME", open.c_str(), 1);
    EXPECT_TRUE(chown(open.c_str(), 1, 1) != 0 ||
                say("on").ends_with("root does not use a user's folders: " + open));
    unsetenv("XDG_CONFIG_HOME");
    fs::remove_all(helper);
    EXPECT_EQ(say("on").find("No such file or directory: refused"), 0U);
    for (const char* name : {"", "../x", ".x", "a b", "\xff"})
        EXPECT_EQ(say("on", name).find("Invalid argument: refused"), 0U) << name;
    EXPECT_FALSE(fs::exists(entry));
}

} // namespace
