// What the helper decides at login: real processes, one table.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "app/Login.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kOn = "<true/>";
constexpr const char* kLaunched = "Zubeq Free: launched at login\n";

void ExpectHelperEnds(ChildProcess& helper) {
    helper.Kill(SIGTERM);
    EXPECT_EQ(helper.Wait(1000), 0);
}

TEST(Decision, ByVersionSettingAndSystem) {
    static constexpr struct {
        const char* version;
        const char* setting;
        const char* system; // null: the usual one
        bool launched;
        const char* reason;
    } rows[] = {
        {"2.14", kOn, nullptr, true, "launching "},
        {"2.14.3", kOn, nullptr, true, "launching "},
        {"02.014", kOn, nullptr, true, "launching "},
        {"V 2.14", kOn, nullptr, true, "launching "},
        {"Vers 2.14", kOn, nullptr, true, "launching "},
        {"2.14", "<string>YES</string>", nullptr, true, "launching "},
        {"2.14", "<integer>1</integer>", nullptr, true, "launching "},
        {"2.14", kOn, "10.7", true, "launching "},
        {"2.14", kOn, "11.0", true, "launching "},
        {"V2.14", kOn, nullptr, false, "not launched: version 0.0 is not 2.14"},
        {"2.15", kOn, nullptr, false, "not launched: version 2.15 is not 2.14"},
        {"12.14", kOn, nullptr, false, "not launched: version 12.14 is not 2.14"},
        {"2.140", kOn, nullptr, false, "not launched: version 2.140 is not 2.14"},
        {"2", kOn, nullptr, false, "not launched: version 2.0 is not 2.14"},
        {"", kOn, nullptr, false, "not launched: version 0.0 is not 2.14"},
        {nullptr, kOn, nullptr, false, "not launched: version 0.0 is not 2.14"},
        {"2.14", "", nullptr, false, "not launched: launch at login is off"},
        {"2.14", "<false/>", nullptr, false, "not launched: launch at login is off"},
        {"2.14", kOn, "10.6", false, "not launched: the system is older than 10.7"},
        {"2.14", kOn, "fail", false, "not launched: the system is older than 10.7"},
    };
    for (const auto& row : rows) {
        const std::string name = std::string(row.version == nullptr ? "(none)" : row.version) + " / " +
                                 row.setting + " / " + (row.system == nullptr ? "" : row.system);
        const Login login;
        const std::string bundle = login.MakeBundle(row.version);
        login.Store(row.setting, bundle);
        if (row.system != nullptr)
            setenv("PORT_SYSTEM_VERSION", row.system, 1);
        const auto helper = Login::StartHelper();
        EXPECT_TRUE(helper->ReadLine().starts_with(std::string("loginhelper: ") + row.reason)) << name;
        if (row.launched) {
            EXPECT_EQ(login.LaunchedApplicationSays(), kLaunched) << name;
            EXPECT_EQ(Login::RunningApplications(), 1) << name;
        }
        // The old system ends it at once, by itself.
        if (row.system != nullptr && !row.launched)
            EXPECT_EQ(helper->Wait(), 0) << name;
        else
            ExpectHelperEnds(*helper);
        EXPECT_EQ(Login::RunningApplications(), row.launched ? 1 : 0) << name; // it outlives the helper
        EXPECT_EQ(Login::StoredPath(), bundle) << name;
    }
}

TEST(Decision, PathsThatLeadNowhere) {
    const Login login;
    login.Store(kOn, login.Path() + "/gone/Zubeq Free.app");
    auto helper = Login::StartHelper();
    EXPECT_NE(helper->ReadLine().find("not launched: nothing is at " + login.Path()), std::string::npos);
    ExpectHelperEnds(*helper);
    EXPECT_EQ(Login::StoredPath(), "(none)");
    EXPECT_FALSE(Login::StoredSetting());

    helper = Login::StartHelper();
    EXPECT_EQ(helper->ReadLine(), "loginhelper: not launched: launch at login is off");
    ExpectHelperEnds(*helper);

    const std::string file = login.Path() + "/Zubeq Free.app";
    std::ofstream(file) << "no folder";
    login.Store(kOn, file);
    helper = Login::StartHelper();
    EXPECT_EQ(helper->ReadLine(), "loginhelper: not launched: " + file + " is no bundle");
    ExpectHelperEnds(*helper);
    EXPECT_EQ(Login::StoredPath(), file); // what exists is not forgotten
    EXPECT_TRUE(Login::StoredSetting());
}

TEST(Decision, LongPathsAreNotCutToAnotherBundle) {
    const Login login;
    const std::string folder = login.Path() + "/" + std::string(200, 'd');
    const std::string fits = folder + "/" + std::string(259 - folder.size() - 5, 'b') + ".app";
    const std::string tooLong = fits + "x"; // cut at 259 bytes it would name the bundle beside it
    fs::create_directory(folder);
    fs::rename(login.MakeBundle("2.14"), fits);
    fs::copy(fits, tooLong, fs::copy_options::recursive);
    for (const std::string& path : {tooLong, fits}) {
        login.Store(kOn, path);
        const auto helper = Login::StartHelper();
        EXPECT_EQ(helper->ReadLine(), path == fits ? "loginhelper: launching " + path
                                                   : "loginhelper: not launched: " + path + " is no bundle");
        ExpectHelperEnds(*helper);
    }
}

TEST(Decision, AnotherNameUnderTheIdentifierIsNotTheMainApplication) {
    const Login login;
    const std::string other = login.MakeBundle("2.14", "Other", "Zubeq Free ");
    ChildProcess application({other + "/Contents/MacOS/Other"});
    ASSERT_EQ(application.ReadLine(), "Zubeq Free: started by the user");
    login.Store(kOn, login.MakeBundle("2.14"));
    const auto helper = Login::StartHelper();
    EXPECT_TRUE(helper->ReadLine().starts_with("loginhelper: launching "))
        << "taken for the main application";
    ExpectHelperEnds(*helper);
}

} // namespace
