// What the helper decides at login, and what the doctor foretells: real processes, in tables.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "app/Login.h"
#include "support/Bundle.h"
#include "support/MainQueue.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kOn = "<true/>";

// What a helper says, and behind it the application that it launched; the helper has ended then.
std::string Decision(const Login& login, bool endsItself = false,
                     const std::string& program = HELPER_PROGRAM) {
    const auto helper = Login::StartHelper(program);
    std::string line = helper->ReadLine();
    if (line.starts_with(HELPER ": launching ")) {
        line += " / " + helper->ReadLine();
        if (line.find(" / " HELPER ": launched ") != std::string::npos)
            line += " / " + login.Said();
    }
    if (!endsItself)
        helper->Kill(SIGTERM);
    EXPECT_EQ(helper->Wait(1000), 0) << line;
    return line;
}

void ExpectForetold(const std::string& verdict) {
    const auto [status, text] = Login::Ctl("doctor");
    EXPECT_EQ(status, 0);
    EXPECT_NE(text.find("next login: " + verdict), std::string::npos) << verdict << text;
}

std::string Launching(const std::string& bundle) {
    return "launching " + bundle + " / " HELPER ": launched " + bundle + " / " APP ": launched at login\n";
}

TEST(LoginDecision, ByVersionSettingAndSystem) {
    // Version, setting, system (null: the usual one), reason (none: launched).
    const std::tuple<const char*, const char*, const char*, std::string> rows[] = {
        {VERSION, kOn, nullptr, ""},
        {"V " VERSION ".3", "<string>YES</string>", "10.7", ""},
        {"Vers 0" VERSION, "<integer>1</integer>", "11.0", ""},
        {VERSION "0", kOn, nullptr, "version " VERSION "0 is not " VERSION},
        {nullptr, kOn, nullptr, "the bundle tells no version"},
        {VERSION, "", nullptr, "launch at login is off"},
        {VERSION, kOn, "10.6", "the system is older than 10.7"},
        {VERSION, kOn, "fail", "the system is older than 10.7"},
    };
    for (const auto& [version, setting, system, reason] : rows) {
        const Login login;
        const std::string bundle = login.MakeBundle(version);
        login.Store(setting, bundle);
        if (system != nullptr)
            setenv("PORT_SYSTEM_VERSION", system, 1);
        const bool launched = reason.empty();
        const bool ends = system != nullptr && !launched;
        SCOPED_TRACE((launched ? "launched" : reason) + " / " + setting);
        ExpectForetold(launched ? "launches the application\nwhy: launch at login is on and version " VERSION
                                  " is"
                                : (ends ? "ends at once\nwhy: " : "launches nothing\nwhy: ") + reason);
        EXPECT_EQ(Decision(login, ends),
                  HELPER ": " + (launched ? Launching(bundle) : "not launched: " + reason));
        EXPECT_EQ(Login::RunningApplications().size(), launched ? 1U : 0U); // it outlives the helper
        EXPECT_TRUE(Login::Stored().ends_with(bundle));
    }
}

TEST(LoginDecision, ByWhatIsAtTheStoredPath) {
    const Login login;
    // Runs all the time, with the identifier of the main application but not with its name.
    ChildProcess other({login.MakeBundle(VERSION, "Other", APP " ") + "/Contents/MacOS/Other"});
    ASSERT_EQ(other.ReadLine(), APP ": started by the user");
    const std::string gone = login.Path() + "/gone/" APP ".app";
    const std::string file = login.Path() + "/file.app";
    std::ofstream(file) << "no folder";
    const std::string unreachable = login.Path() + "/loop/" APP ".app";
    fs::create_symlink("loop", login.Path() + "/loop");
    const std::string folder = login.Path() + "/" + std::string(200, 'd');
    const std::string fits = folder + "/" + std::string(259 - folder.size() - 5, 'b') + ".app";
    const std::string tooLong = fits + "x"; // cut at 259 bytes it would name the bundle beside it
    fs::create_directory(folder);
    fs::rename(login.MakeBundle(VERSION), fits);
    fs::copy(fits, tooLong, fs::copy_options::recursive);
    const std::string settings = login.Path() + "/" + LHelperIdentifier + ".plist";
    std::ofstream(settings) << "damaged";
    ExpectForetold("launches nothing\nwhy: the settings are damaged");
    EXPECT_EQ(Decision(login), HELPER ": not launched: the settings are damaged");
    EXPECT_EQ(FileText(settings), "damaged");
    const std::string copy = login.Path() + "/" HELPER;
    fs::copy_file(HELPER_PROGRAM, copy);
    EXPECT_EQ(Decision(login, false, copy), HELPER ": not launched: cannot find my own bundle");
    // Copies of the bundle, each with one fault.
    const auto broken = [&](const char* fault, auto spoil) {
        const std::string bundle = login.Path() + "/" + fault + "/" APP ".app";
        fs::create_directory(login.Path() + "/" + fault);
        fs::copy(fits, bundle, fs::copy_options::recursive);
        spoil(bundle + "/Contents/");
        return bundle;
    };
    const std::string program = "MacOS/" APP;
    const std::string damaged =
        broken("damaged", [](const fs::path& in) { std::ofstream(in / "Info.plist"); });
    const std::string hollow = broken("hollow", [&](const fs::path& in) { fs::remove(in / program); });
    const std::string mute =
        broken("mute", [&](const fs::path& in) { fs::permissions(in / program, fs::perms::owner_read); });
    const std::string open =
        broken("open", [](const fs::path& in) { fs::permissions(in / "MacOS", fs::perms::all); });
    const std::string nothing = "launches nothing";
    const std::string forgets = nothing + " and forgets the settings";
    // What is stored, what becomes of it, why (none: launched), and what is stored afterwards.
    const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
        {gone, forgets, "nothing is at " + gone + " any more, the setting is forgotten", "off (none)"},
        {file + "/x.app", forgets, "nothing is at " + file + "/x.app any more, the setting is forgotten",
         "off (none)"},
        {"", forgets, "no path is stored", "off (none)"},
        {unreachable, nothing, unreachable + " cannot be looked at: Too many levels of symbolic links",
         "on " + unreachable},
        {file, nothing, file + " is no bundle", "on " + file},
        {tooLong, nothing, tooLong + " is no bundle", "on " + tooLong},
        {damaged, nothing, damaged + "/Contents/Info.plist is missing or damaged", "on " + damaged},
        {hollow, nothing, hollow + " has no executable", "on " + hollow},
        {mute, nothing, mute + "/Contents/" + program + " cannot be executed: Permission denied",
         "on " + mute},
        {open, nothing, "others may change " + open + "/Contents/MacOS", "on " + open},
        {fits, "launches the application", "", "on " + fits},
    };
    for (const auto& [path, foretold, why, stored] : rows) {
        login.Store(kOn, path);
        ExpectForetold(foretold + "\nwhy: " + why);
        EXPECT_EQ(Decision(login), HELPER ": " + (why.empty() ? Launching(path) : "not launched: " + why));
        EXPECT_EQ(Login::Stored(), stored);
    }
}

TEST(LoginDecision, TellsWhatBecameOfALaunch) {
    const Login login;
    const std::string bundle = login.Path() + "/x\n" HELPER ": y.app";
    fs::rename(login.MakeBundle(VERSION), bundle);
    std::ofstream(bundle + "/Contents/MacOS/" APP) << "no program";
    login.Store(kOn, bundle);
    const std::string shown = login.Path() + "/x?" HELPER ": y.app"; // no line is forged
    EXPECT_EQ(Decision(login), HELPER ": launching " + shown + " / " HELPER ": not launched: " + shown +
                                   ": Exec format error");
}

// Every other time the application ends at once, and its program is a script, which no process table shows.
TEST(LoginDecision, TwoHelpersAtOnceLaunchOnce) {
    const int rounds = getenv("LFOUNDATION_TORTURE") != nullptr ? 100 : 6;
    for (int round = 0; round < rounds; ++round) {
        const Login login;
        const std::string bundle = login.MakeBundle(VERSION);
        if (round % 2 != 0)
            std::ofstream(bundle + "/Contents/MacOS/" APP) << "#!/bin/sh\necho launched at login\n";
        login.Store(kOn, bundle);
        const auto first = Login::StartHelper();
        const auto second = Login::StartHelper();
        int launches = 0;
        for (const auto* helper : {&first, &second}) {
            const std::string line = (*helper)->ReadLine();
            launches += line == HELPER ": launching " + bundle;
            EXPECT_NE(line, "");
        }
        EXPECT_EQ(launches, 1) << round;
        EXPECT_TRUE(login.Said().ends_with("launched at login\n"));
        for (const auto* helper : {&first, &second}) {
            (*helper)->Kill(SIGTERM);
            EXPECT_EQ((*helper)->Wait(1000), 0) << round;
        }
    }
}

TEST(LoginDecision, WordsBehindTheCommand) {
    const std::tuple<const char*, int, const char*> rows[] = {
        {"--help", 0, "Usage: " HELPER " [--serve]\n"},
        {"--version", 0, HELPER " (LFoundation) "},
        {"--help >/dev/full", 74, ""},
        {"--sevre", 64, HELPER ": unexpected argument '--sevre'\n"},
        {"--serve ''", 64, "unexpected argument ''\n"},
        {"/some/file", 64, "unexpected argument '/some/file'\n"},
    };
    for (const auto& [words, status, part] : rows) {
        const auto [ended, text] = Login::Ctl(words, HELPER_PROGRAM);
        EXPECT_EQ(ended, status) << words;
        EXPECT_NE(text.find(part), std::string::npos) << words << ": " << text;
    }
}

// Though the setting is on, what a question starts launches nothing; it goes some seconds after the last one.
TEST(LoginDecision, AServingHelperOnlyServes) {
    const Login login;
    login.Store(kOn, login.MakeBundle(VERSION));
    const auto helper = Login::StartHelper(HELPER_PROGRAM, "--serve");
    ASSERT_NE(helper->ReadLine(), "");
    EXPECT_TRUE(WaitFor([] { return Login::Ctl("test").first == 0; }));
    EXPECT_EQ(Login::Ctl("query"), std::pair(0, std::string("launch at login: on\n")));
    EXPECT_EQ(Login::StartHelper(HELPER_PROGRAM, "--serve")->Wait(), 69) << "another one serves";
    EXPECT_TRUE(Login::RunningApplications().empty());
    EXPECT_EQ(helper->Wait(15000), 0);
}

} // namespace
