// What the helper decides at login: real processes, in tables.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "app/Login.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kOn = "<true/>";

// What a helper says first, and the launched application behind it; the helper has ended then.
std::string Decision(bool endsItself = false) {
    const auto helper = Login::StartHelper();
    std::string line = helper->ReadLine();
    if (line.starts_with("loginhelper: launching "))
        line += " / " + helper->ReadLine();
    if (!endsItself)
        helper->Kill(SIGTERM);
    EXPECT_EQ(helper->Wait(1000), 0) << line;
    return line;
}

std::string Launching(const std::string& bundle) {
    return "launching " + bundle + " / Zubeq Free: launched at login";
}

TEST(LoginDecision, ByVersionSettingAndSystem) {
    static constexpr struct {
        const char* version;
        const char* setting;
        const char* system; // null: the usual one
        const char* reason; // null: launched
    } rows[] = {
        {"2.14", kOn, nullptr, nullptr},
        {"V 2.14.3", "<string>YES</string>", "10.7", nullptr},
        {"Vers 02.014", "<integer>1</integer>", "11.0", nullptr},
        {"2.140", kOn, nullptr, "version 2.140 is not 2.14"},
        {nullptr, kOn, nullptr, "version 0.0 is not 2.14"},
        {"2.14", "", nullptr, "launch at login is off"},
        {"2.14", kOn, "10.6", "the system is older than 10.7"},
        {"2.14", kOn, "fail", "the system is older than 10.7"},
    };
    for (const auto& row : rows) {
        const Login login;
        const std::string bundle = login.MakeBundle(row.version);
        login.Store(row.setting, bundle);
        if (row.system != nullptr)
            setenv("PORT_SYSTEM_VERSION", row.system, 1);
        const bool launched = row.reason == nullptr;
        SCOPED_TRACE(std::string(launched ? "launched" : row.reason) + " / " + row.setting);
        EXPECT_EQ(Decision(row.system != nullptr && !launched),
                  "loginhelper: " +
                      (launched ? Launching(bundle) : std::string("not launched: ") + row.reason));
        EXPECT_EQ(Login::RunningApplications().size(), launched ? 1U : 0U); // it outlives the helper
        EXPECT_TRUE(Login::Stored().ends_with(bundle));
    }
}

TEST(LoginDecision, ByWhatIsAtTheStoredPath) {
    const Login login;
    // Runs all the time, with the identifier of the main application but not with its name.
    ChildProcess other({login.MakeBundle("2.14", "Other", "Zubeq Free ") + "/Contents/MacOS/Other"});
    ASSERT_EQ(other.ReadLine(), "Zubeq Free: started by the user");
    const std::string gone = login.Path() + "/gone/Zubeq Free.app";
    const std::string file = login.Path() + "/file.app";
    std::ofstream(file) << "no folder";
    const std::string folder = login.Path() + "/" + std::string(200, 'd');
    const std::string fits = folder + "/" + std::string(259 - folder.size() - 5, 'b') + ".app";
    const std::string tooLong = fits + "x"; // cut at 259 bytes it would name the bundle beside it
    fs::create_directory(folder);
    fs::rename(login.MakeBundle("2.14"), fits);
    fs::copy(fits, tooLong, fs::copy_options::recursive);
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {gone, "not launched: nothing is at " + gone + " any more, the setting is forgotten", "off (none)"},
        {"", "not launched: launch at login is off", "off (none)"},
        {file, "not launched: " + file + " is no bundle", "on " + file},
        {tooLong, "not launched: " + tooLong + " is no bundle", "on " + tooLong},
        {fits, Launching(fits), "on " + fits},
    };
    for (const auto& [path, decision, stored] : rows) {
        login.Store(kOn, path);
        EXPECT_EQ(Decision(), "loginhelper: " + decision);
        EXPECT_EQ(Login::Stored(), stored);
    }
}

} // namespace
