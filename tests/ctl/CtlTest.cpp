#include <gtest/gtest.h>

#include "app/Login.h"

namespace {

struct Outcome {
    int status;
    std::string text; // standard output and error
};

// The words are the shell's.
Outcome Ctl(const std::string& words, const std::string& before = "") {
    ChildProcess shell({"/bin/sh", "-c", before + " '" LOGINHELPERCTL "' " + words + " 2>&1"});
    const std::string text = shell.ReadAll();
    return {shell.Wait(), text};
}

TEST(Ctl, CommandLines) {
    const PrivatePlace place;
    ChildProcess mute({HostPath("../xpc/xpc_host"), "Mute"});
    ASSERT_EQ(mute.ReadLine(), "ready");
    const struct {
        const char* words;
        int status;
        const char* text; // a part of the output
    } rows[] = {
        {"--help", 0, "Usage: loginhelperctl [OPTION]... COMMAND\n"},
        {"query -h", 0, "Usage: "},
        {"--version", 0, "loginhelperctl (LFoundation) "},
        {"", 64, "missing command\nTry 'loginhelperctl --help'"},
        {"dance", 64, "unknown command 'dance'\n"},
        {"--json dance", 64, "unknown command"},
        {"enable", 64, "needs the path"},
        {"query too", 64, "extra operand 'too'\n"},
        {"enable / too", 64, "extra operand 'too'\n"},
        {"--nonsense query", 64, "--nonsense"},
        {"--timeout 0 query", 64, "invalid time-out '0'"},
        {"--timeout 600001 query", 64, "invalid time-out"},
        {"--timeout 5s query", 64, "invalid time-out '5s'"},
        {"--timeout '' query", 64, "invalid time-out ''"},
        {"enable /no/such/place", 66, "/no/such/place: No such file or directory\n"},
        {"query", 69, "loginhelperctl: nobody serves Q4KX2M9T7W.com.brelvanic.loginhelper.zubeqfree214\n"},
        {"quit --service Nobody", 69, "nobody serves Nobody\n"},
        {"test --json --service Nobody", 69,
         "{\"command\":\"test\",\"status\":69,\"message\":\"nobody serves Nobody\"}\n"},
        {"identify --service Mute --timeout 100 --bundle /x.app", 75,
         "no reply within 100 ms: the helper does"},
        {"quit --service Mute --timeout=100", 75, "has not ended within 100 ms"},
        {"query --json >/dev/full", 74, ""},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Ctl(row.words);
        EXPECT_EQ(outcome.status, row.status) << row.words;
        EXPECT_NE(outcome.text.find(row.text), std::string::npos) << row.words << ": " << outcome.text;
    }
}

TEST(Ctl, JSONHoldsWhateverAPathHolds) {
    const PrivatePlace place;
    if (Ctl("", "python3 --version;").status != 64)
        GTEST_SKIP() << "python3 is missing";
    const Outcome outcome = Ctl(
        R"sh(--json enable "$(printf '/"\\\n\001\177\303\251\360\237\230\200|\377\303|\355\240\200|\300\200')" |)sh"
        R"sh( python3 -c 'import json,sys; print(ascii(json.load(sys.stdin)["message"]))')sh");
    EXPECT_EQ(outcome.text, R"('/"\\\n\x01\x7f\xe9\U0001f600|\ufffd\ufffd|\ufffd\ufffd\ufffd|\ufffd\ufffd: )"
                            "No such file or directory'\n");
}

// What the next login would do, against settings and bundles as they may be.
TEST(Ctl, DoctorAndForget) {
    const Login login;
    const std::string path = login.Path() + "/Zubeq Free.app";
    const struct {
        const char* environment;
        const char* setting;
        std::string path;
        const char* version; // null: no bundle is made
        const char* verdict;
    } rows[] = {
        {"", "", "", nullptr, "launches nothing and forgets the settings\nwhy: no path is stored\n"},
        {"", "<true/>", path, nullptr,
         "launches nothing and forgets the settings\nwhy: nothing exists at the stored path\n"},
        {"", "<true/>", path, "", "launches nothing\nwhy: the bundle tells no version\n"},
        {"", "<true/>", path, "2.15", "launches nothing\nwhy: version 2.15 is not 2.14\n"},
        {"", "", path, "2.14", "launches nothing\nwhy: launch at login is off\n"},
        {"", "<true/>", path, "2.14.3",
         "launches the application\nwhy: launch at login is on and version 2.14"},
        {"PORT_SYSTEM_VERSION=10.6", "<true/>", path, "2.14",
         "ends at once\nwhy: the system is older than 10.7\n"},
    };
    for (const auto& row : rows) {
        if (row.version != nullptr)
            login.MakeBundle(row.version);
        login.Store(row.setting, row.path);
        const Outcome outcome = Ctl("doctor", row.environment);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.text.find(std::string("next login: ") + row.verdict), std::string::npos)
            << row.verdict << outcome.text;
    }
    EXPECT_EQ(Ctl("forget").text, "settings: removed\n");
    const std::string after = Ctl("doctor").text;
    EXPECT_NE(after.find("launch at login: off\nstored path: none\n"), std::string::npos) << after;
}

TEST(Ctl, AWholeConversationWithTheHelper) {
    const Login login;
    const std::string bundle = login.MakeBundle("2.14");
    ChildProcess application({bundle + "/Contents/MacOS/Zubeq Free"});
    ASSERT_EQ(application.ReadLine(), "Zubeq Free: started by the user");
    const auto helper = Login::StartHelper();
    for (int tries = 0; tries < 200 && Ctl("test").status != 0; tries++)
        helper->ReadLine(10);
    const struct {
        std::string words;
        int status;
        std::string text;
    } rows[] = {
        {"test", 0, "helper: answers\n"},
        {"query --json", 0,
         R"({"command":"query","status":0,"launchAtLogin":false})"
         "\n"},
        {"identify", 0, "identified as the main application: yes\n"},
        {"identify --timeout 100 --bundle '/Applications/zubeq free.app'", 75,
         "loginhelperctl: no reply within 100 ms: the helper does not answer a bundle that is not named "
         "\"Zubeq "
         "Free\"\n"},
        {"enable '" + bundle + "/../Zubeq Free.app'", 0, "launch at login: on\npath: " + bundle + "\n"},
        {"query", 0, "launch at login: on\n"},
        {"disable", 0, "launch at login: off\n"},
        {"query", 0, "launch at login: off\n"},
        {"enable " + login.Path(), 0,
         "launch at login: on\npath: " + login.Path() + "\nloginhelperctl: warning: " + login.Path() +
             " is no application bundle; the next login will launch nothing\n"},
        {"quit", 0, "helper: ended\n"},
        {"quit", 69, "loginhelperctl: nobody serves Q4KX2M9T7W.com.brelvanic.loginhelper.zubeqfree214\n"},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Ctl(row.words);
        EXPECT_EQ(outcome.status, row.status) << row.words;
        EXPECT_EQ(outcome.text, row.text) << row.words;
    }
    EXPECT_EQ(helper->Wait(), 0);
}

} // namespace
