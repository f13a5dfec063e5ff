// What the doctor finds in each situation, the one thing that it says to do, and that it leaves all as it is.
#include <csignal>
#include <gtest/gtest.h>

#include "app/Login.h"

namespace {

// In a place with everything as it should be, $0, with loginhelperctl as $1: makes the situation and asks the doctor. Whatever differs
// afterwards is told before the report ends.
std::string Report(const Login& login, const std::string& situation,
                   const std::string& ask = "\"$ctl\" doctor") {
    const std::string script =
        "cd \"$0\"; app='" APP ".app'; plist=$(ls *.plist); entry=xdg/autostart/" ID ".desktop\n"
        "units=systemd/user; unit=$units/" ID ".service\n"
        "manager() { mkdir -p $units/x.wants; touch systemd/private; echo X-systemd-skip=true >>$entry\n"
        "    sed 's/Desktop Entry/Service/; s/^Exec/ExecStart/' $entry >$unit; }\n"
        "all() { find . -printf '%p %s %m %T@ %C@\\n'; }\n"
        "export ctl=\"$1\"\n"
        // Instead of the session's entry; the program and the helper as an installation has them.
        "register() { mkdir bin libexec; helper=$(sed -n 's|^Exec=\"\\(.*\\)/Contents.*|\\1|p' $entry); rm "
        "$entry\n"
        "    cp -R \"$helper\" libexec; cp \"$ctl\" bin; ctl=$0/bin/${ctl##*/}; \"$ctl\" register; \"$ctl\" "
        "quit\n"
        "    while pgrep -f \"^$0/libexec\"; do :; done; entry=${entry#*/}; } >/dev/null\n" +
        situation + "\nbefore=$(all)\n" + ask + " 2>&1\n[ \"$before\" = \"$(all)\" ] || echo CHANGED\n";
    ChildProcess shell({"/bin/sh", "-c", script, login.Path(), LOGINHELPERCTL});
    return shell.ReadAll();
}

// "@" stands for the place.
std::string At(const Login& login, std::string text) {
    for (std::size_t at = 0; (at = text.find('@', at)) != text.npos; at += login.Path().size())
        text.replace(at, 1, login.Path());
    return text;
}

struct Row {
    const char* situation;
    const char* nextLogin;
    const char* problem; // null: none
    const char* nextStep = "";
    const char* ask = "\"$ctl\" doctor";
};

constexpr const char* kLaunches = "launches the application\n";
constexpr const char* kNothing = "launches nothing\n";
constexpr const char* kElsewhere =
    "launches the application in a session that the service manager does not run\n";
constexpr const char* kForgets = "launches nothing and forgets the settings\n";
constexpr const char* kEnable = "start the application, then: " CTL " enable '" LOGINHELPER_APP_PATH "'";
constexpr const char* kAgain = "install the application again";
constexpr const char* kUnstarted = "nothing starts the helper at login";
constexpr const char* kLeft = "a session that the service manager runs does not start the helper";

constexpr Row kRows[] = {
    {":", kLaunches, nullptr},
    {"rm $plist", kNothing, "launch at login is off", kEnable},
    {"mv \"$app\" moved.app", kForgets, "nothing is at @/" APP ".app any more, the setting is forgotten",
     kEnable},
    {"sed -i s/" VERSION "/1.2/ \"$app\"/Contents/Info.plist", kNothing, "version 1.2 is not " VERSION,
     "install version " VERSION " of the application"},
    {"rm -r \"$app\"; touch \"$app\"", kNothing, "@/" APP ".app is no bundle", kEnable},
    {"sed -i s/" LOGINHELPER_APP_IDENTIFIER "/com.other/ \"$app\"/Contents/Info.plist", kLaunches,
     "the identifier of @/" APP ".app is not " LOGINHELPER_APP_IDENTIFIER
     ": while it runs no helper knows it",
     kEnable},
    {"echo damaged >$plist", kNothing, "the settings are damaged", CTL " forget"},
    {"rm $plist; mkdir $plist", kNothing, "the settings cannot be read: ", "ls -ld @/" ID ".plist"},
    {"rm \"$app\"/Contents/MacOS/*", kNothing, "@/" APP ".app has no executable", kAgain},
    {"chmod a-x \"$app\"/Contents/MacOS/*", kNothing,
     "@/" APP ".app/Contents/MacOS/" APP " cannot be executed: Permission denied",
     "chmod u+x '@/" APP ".app/Contents/MacOS/" APP "'"},
    {"echo damaged >\"$app\"/Contents/Info.plist", kNothing,
     "@/" APP ".app/Contents/Info.plist is missing or damaged", kAgain},
    {"chmod 777 \"$app\"", kNothing, "others may change @/" APP ".app", "chmod go-w '@/" APP ".app'"},
    {"echo Hidden=true >>$entry", kNothing, kUnstarted},
    {"ln -sf /dev/null $entry", kNothing, kUnstarted},
    {"echo X-GNOME-Autostart-enabled = false >>$entry", kNothing, kUnstarted},
    {"sed -i 's|^Exec=.*|Exec=/no/helper --x|' $entry", kNothing,
     "@/xdg/autostart/" ID ".desktop starts /no/helper: No such file or directory",
     "install the helper again"},
    {"register", kLaunches, nullptr},
    {"manager; register", kLaunches, nullptr},
    {"register; echo NotShowIn=A\\;B\\; >>$entry; export XDG_CURRENT_DESKTOP=B:C", kNothing, kUnstarted,
     "take 'NotShowIn' out of @/autostart/" ID ".desktop"},
    {"register; rm -r libexec", kNothing, "@/autostart/" ID ".desktop starts @/libexec/",
     "install the helper again"},
    {"rm $entry", kNothing, kUnstarted, CTL " register"},
    {"manager", kElsewhere, kLeft, "systemctl --user enable " ID ".service"},
    {"manager; ln -s ../" ID ".service $units/x.wants", kLaunches, nullptr},
    {"manager; ln -s ../" ID ".service $units/x.wants; ln -sf /dev/null $unit", kElsewhere, kLeft,
     "systemctl --user unmask " ID ".service"},
    {"mkdir -m 755 port-xpc", kLaunches, "@/port-xpc has mode 0755, not 0700", "chmod 0700 @/port-xpc"},
    {"ln -s . port-xpc", kLaunches, "@/port-xpc is a link", "rm @/port-xpc"},
    {"export XDG_RUNTIME_DIR=$0/none", kLaunches,
     "@/none/port-xpc cannot be made: @/none/: No such file or directory",
     "log in anew: the session makes its runtime folder"},
    {"unset XDG_RUNTIME_DIR", kLaunches,
     "XDG_RUNTIME_DIR is not set: ", "export XDG_RUNTIME_DIR=/run/user/$(id -u)"},
};
// What only root can bring about.
constexpr Row kRootRows[] = {
    {"mkdir -m 700 port-xpc; chown 65534 port-xpc", kLaunches, "@/port-xpc belongs to user 65534",
     "have an administrator remove @/port-xpc"},
    {"chown -R 65534 \"$app\"", kNothing, "others may change @/" APP ".app",
     "install the application where only you and root may write"},
    {"unshare -m sh -c 'umount -l /proc && \"$ctl\" --version' >/dev/null || { echo impossible; exit; }",
     kNothing, "cannot find my own bundle", "mount /proc, from which programs know where they are",
     "unshare -m sh -c 'umount -l /proc; \"$ctl\" doctor'"},
};

void Check(const Row& row) {
    SCOPED_TRACE(row.situation);
    const Login login;
    login.Store("<true/>", login.MakeBundle(VERSION));
    const std::string report = Report(login, row.situation, row.ask);
    if (report.starts_with("impossible"))
        return;
    EXPECT_EQ(report.find("CHANGED"), std::string::npos) << report;
    EXPECT_NE(report.find("next login: " + std::string(row.nextLogin)), std::string::npos) << report;
    const std::size_t found = report.find("\nproblem: ");
    if (row.problem == nullptr) {
        EXPECT_EQ(found, std::string::npos) << report;
        return;
    }
    const std::size_t at = report.find(At(login, "\nproblem: " + std::string(row.problem)));
    ASSERT_NE(at, std::string::npos) << report;
    EXPECT_NE(report.find(At(login, std::string("\n  next step: ") + row.nextStep), at), std::string::npos)
        << report;
}

TEST(Doctor, FindsWhatIsWrongAndChangesNothing) {
    for (const Row& row : kRows)
        Check(row);
    for (const Row& row : kRootRows)
        if (geteuid() == 0)
            Check(row);
}

TEST(Doctor, TellsWhoHasTheService) {
    const Login login;
    const auto expect = [&](const std::string& text, const std::string& words = "") {
        const std::string report = Login::Ctl("doctor " + words).second;
        EXPECT_NE(report.find(text), std::string::npos) << text << "\n" << report;
    };
    const auto process = [](const ChildProcess& child) { return "process " + std::to_string(child.Pid()); };
    expect("service: not served\n");
    ChildProcess mute({HostPath("../xpc/xpc_host"), "Mute"});
    ASSERT_EQ(mute.ReadLine(), "ready");
    expect("problem: the service: taken by " + process(mute) +
               ", which is no helper that replies\n  next step: end " + process(mute) + "\n",
           "--service Mute --timeout 100");
    mute.Kill(SIGKILL);
    mute.Wait();
    expect("service: not served: a helper that was killed left its socket", "--service Mute");
    {
        const auto idle = Login::StartHelper();
        ASSERT_EQ(idle->ReadLine(), HELPER ": not launched: launch at login is off");
        expect("helper: runs\nservice reachable: no\nservice: not served: the helper that runs is idle\n");
    }
    ChildProcess application({login.MakeBundle(VERSION) + "/Contents/MacOS/" APP});
    ASSERT_EQ(application.ReadLine(), APP ": started by the user");
    const auto helper = Login::StartHelper();
    ASSERT_NE(helper->ReadLine().find("serving"), std::string::npos);
    expect("main application now: runs\n");
    expect("service: answers\n");
    helper->Kill(SIGSTOP);
    expect("problem: the service: the helper, " + process(*helper) +
               ", does not reply\n  next step: kill -KILL " + std::to_string(helper->Pid()) + "\n",
           "--timeout 100");
}

} // namespace
