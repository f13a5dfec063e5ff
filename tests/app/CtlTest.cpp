// The command line of loginhelperctl, without a helper.
#include <gtest/gtest.h>
#include <unistd.h>

#include "app/Login.h"

namespace {

TEST(Ctl, CommandLines) {
    const PrivatePlace place;
    ChildProcess mute({HostPath("../xpc/xpc_host"), "Mute"});
    ASSERT_EQ(mute.ReadLine(), "ready");
    // The words, the status, and a part of the output.
    const std::tuple<const char*, int, const char*> rows[] = {
        {"--help", 0, "Usage: " CTL " [OPTION]... COMMAND\n"},
        {"--version", 0, CTL " (LFoundation) "},
        {"", 64, "missing command\nTry '" CTL " --help'"},
        {"dance", 64, "unknown command 'dance'\n"},
        {"enable", 64, "needs the path"},
        {"query too", 64, "extra operand 'too'\n"},
        {"--nonsense query", 64, "--nonsense"},
        {"--timeout 0 query", 64, "invalid time-out '0'"},
        {"--timeout 600001 query", 64, "invalid time-out"},
        {"--timeout 5s query", 64, "invalid time-out '5s'"},
        {"--timeout '' query", 64, "invalid time-out ''"},
        {"enable /no/such/place", 66, "/no/such/place: No such file or directory\n"},
        {"--json dance", 64, "{\"command\":\"\",\"status\":64,\"message\":\"unknown command 'dance'\"}\n"},
        {"--timeout --json", 64, "invalid time-out '--json'"},
        {"query --bundle", 64, "option '--bundle' needs an argument\nTry"},
        {"query", 69, CTL ": nobody serves " ID "; '" CTL " register' starts"},
        {"quit --json --service Nobody", 69,
         "{\"command\":\"quit\",\"status\":69,\"message\":\"nobody serves Nobody\"}\n"},
        {"identify --service Mute --timeout 100 --bundle /x.app", 75,
         "no reply within 100 ms: the helper does"},
        {"quit --service Mute --timeout=100", 75, "has not ended within 100 ms"},
        {"query --json >/dev/full", 74, ""},
        // A search for leaks needs descriptors of its own.
        {"-V; export ASAN_OPTIONS=detect_leaks=0; sh -c 'ulimit -n 5; exec \"$0\" quit --service Mute' "
         "\"" LOGINHELPERCTL "\"",
         71, "the helper cannot be asked: "},
    };
    for (const auto& [words, status, part] : rows) {
        const auto [ended, text] = Login::Ctl(words);
        EXPECT_EQ(ended, status) << words;
        EXPECT_NE(text.find(part), std::string::npos) << words << ": " << text;
    }
}

TEST(Ctl, RegistersAndLeavesNothing) {
    const Login login;
    const std::string bundle = login.MakeBundle(VERSION);
    const std::string entry = "autostart/" ID ".desktop", ends = "helper: does not run\n";
    // A prefix of its own, where everything below happens.
    const auto run = [](const std::string& commands) { return Login::Ctl("\"$HOME\"; " + commands, "cd"); };
    ASSERT_EQ(run("rm xdg/" + entry +
                  " && mkdir bin libexec; h=\"" HELPER_PROGRAM "\"; cp -R \"${h%/Contents/*}\" libexec; "
                  "cp \"" LOGINHELPERCTL "\" bin/ctl; find . -type f >before"),
              std::pair(0, std::string()));
    // What is done before, the command, its status, and a part of what it says.
    const std::tuple<std::string, std::string, int, std::string> rows[] = {
        {"", "status", 1, "registered: no\n"},
        {"", "register", 0, "registered: yes\n"},
        {"chmod 777 libexec", "register", 77,
         "not registered: others may change " + login.Path() + "/libexec\n"},
        {"chmod 755 libexec", "enable '" + bundle + "'", 0, "launch at login: on\n"},
        {"", "status", 0, "next login: launches the application\n"},
        {"", "status --json", 0, "\"registered\":true,"},
        {"echo Hidden=true >>" + entry, "status", 1, "switched off by: Hidden=true\n"},
        {"", "register", 77, "not registered: the user has switched it off: Hidden=true in "},
        {"", "unregister", 0,
         "registered: no\n" + ends + CTL ": the entry that you have switched off stays: "},
        {"rm " + entry, "register", 0, "registered: yes\n"},
        {"mv libexec away", "unregister", 0, "registered: no\n" + ends},
        {"mv away libexec; rm -r port-xpc; find . -type f | diff before -", "status", 1,
         "helper's version: 1.0\n"},
        {"rm -r libexec", "register", 66, "not registered: there is no such helper"},
    };
    for (const auto& [before, words, status, part] : rows) {
        EXPECT_EQ(run(before), std::pair(0, std::string())) << before;
        const auto [ended, text] = run("bin/ctl " + words);
        EXPECT_EQ(ended, status) << words << text;
        EXPECT_NE(text.find(part), std::string::npos) << words << ": " << text;
    }
}

TEST(Ctl, RootTouchesNoUsersFolders) {
    const PrivatePlace place;
    if (geteuid() != 0 || chown(place.Path().c_str(), 1, 1) != 0)
        GTEST_SKIP() << "not root";
    const auto [status, text] = Login::Ctl("forget");
    EXPECT_EQ(status, 77);
    EXPECT_NE(text.find("root does not use a user's folders: "), std::string::npos) << text;
}

TEST(Ctl, JSONHoldsWhateverAPathHolds) {
    const PrivatePlace place;
    if (Login::Ctl("--help; python3 --version").first != 0)
        GTEST_SKIP() << "python3 is missing";
    const auto [status, text] = Login::Ctl(
        R"sh(--json enable "$(printf '/"\\\n\001\177\303\251\360\237\230\200|\377\303|\355\240\200|\300\200')" |)sh"
        R"sh( python3 -c 'import json,sys; print(ascii(json.load(sys.stdin)["message"]))')sh");
    EXPECT_EQ(text, R"('/"\\\n\x01\x7f\xe9\U0001f600|\ufffd\ufffd|\ufffd\ufffd\ufffd|\ufffd\ufffd: )"
                    "No such file or directory'\n");
}

} // namespace
