#include "platform/LProcessUtilities.h"

#include "debug/LDebugThread.h"
#include "support/Bundle.h"
#include "support/Child.h"
#include "support/TemporaryFolder.h"

#include <array>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

static std::string localeSet = "C";
static bool groupsAreAdmin = false;

// This program's C library has two locales, and on demand a large group called "admin".
char* setlocale(int category, const char* name) noexcept {
    const std::string sName = name == nullptr ? "" : name;
    if (sName != "" && (category != LC_ALL || (sName != "de_DE.UTF-8" && sName != "sv_SE")))
        return nullptr;
    return (sName != "" ? localeSet = sName : localeSet).data();
}

int getgrgid_r(gid_t group, struct group* entry, char* buffer, std::size_t size, struct group** found) {
    const bool bFits = size >= 100000;
    *entry = {bFits ? std::strcpy(buffer, "admin") : nullptr, nullptr, group, nullptr};
    *found = groupsAreAdmin && group != 0 && bFits ? entry : nullptr;
    return bFits ? 0 : ERANGE;
}

namespace {

bool Holds(const char* szShellTest) {
    return std::system(szShellTest) == 0;
}

std::string Arguments() {
    std::string sText;
    for (char** p = gargv; *p != nullptr; ++p)
        sText.append(*p).append("|");
    EXPECT_EQ(nullptr, gargv[gargc]);
    return sText;
}

TEST(ProcessTest, KeepsTheCommandLine) {
    std::string sHuge = "-psn" + std::string(10000, 'x');
    char program[] = "-psn", option[] = "-x";
    char* arguments[] = {program, sHuge.data(), option, sHuge.data(), nullptr};
    LUnixAppCopyCommandLineArguments(4, arguments);
    EXPECT_EQ("-psn|-x|" + sHuge + "|", Arguments());
    for (const auto& [nIndex, szLeft] :
         {std::pair(2, "-psn|-x|"), {2, "-psn|-x|"}, {-1, "-psn|-x|"}, {0, "-x|"}, {0, ""}, {0, ""}}) {
        LRemoveCommandLineArgument(nIndex);
        EXPECT_EQ(szLeft, Arguments());
    }
    LUnixAppCopyCommandLineArguments(-5, nullptr);
    EXPECT_EQ("", Arguments());
}

TEST(ProcessTest, StartsAnApplication) {
    InChild([] {
        char* arguments[] = {localeSet.data(), nullptr};
        EXPECT_TRUE(LUnixAppInitCommon(1, arguments));
        EXPECT_STREQ("MAIN", gDebugThreadData[0].szTag);
        EXPECT_EQ(0U, umask(022));
        EXPECT_EQ(arguments[0], gargv[0]);
        EXPECT_TRUE(Holds("test $(ulimit -n) = 1024"));
        const rlimit low{100, 100};
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &low));
        EXPECT_EQ(-1, LSetMaximumNumberOfOpenFiles());
        EXPECT_TRUE(Holds("test $(ulimit -n) = 100"));
    });
}

TEST(ProcessTest, SetsTheFirstLocaleThatIsTold) {
    const std::string sNumber = "<key>AppleLocale</key><integer>5</integer>";
    const std::string sGerman = Entry("AppleLocale", "de_DE_PREEURO");
    const std::string sSwedish = Entry("AppleLocale", "sv_SE");
    // The environment, the preference of the application and that of any, and what comes of them.
    const std::array<std::string, 4> rows[] = {
        {"LANG=de_DE.ISO-8859-1", sSwedish, "", "de_DE.UTF-8"},
        {"LC_ALL=sv_SE@euro", "", "", "sv_SE"},
        {"LANG=C.UTF-8", sGerman, sSwedish, "de_DE.UTF-8"},
        {"LANG=", sNumber, sSwedish, "sv_SE"},
        {"LANG=zh_Hans_CN", "", "", "C"},
        {"LC_MESSAGES=POSIX", sNumber, "damaged <", "C"},
        {"LANG=\xFF\xFE", "", sGerman, "de_DE.UTF-8"},
        {"USELESS=", "", "", "C"},
    };
    for (const auto& [sVariable, sOwn, sAny, sExpected] : rows) {
        const TemporaryFolder folder;
        std::ofstream(folder.root / "com.brelvanic.loginhelper.plist") << PropertyList(sOwn);
        std::ofstream(folder.root / ".GlobalPreferences.plist") << PropertyList(sAny);
        InChild([&] {
            clearenv();
            setenv("XDG_CONFIG_HOME", folder.root.c_str(), 1);
            putenv(const_cast<char*>(sVariable.c_str()));
            const char* const szFirst = LGetLocale(0);
            localeSet = "changed by somebody else";
            EXPECT_EQ(szFirst, LGetLocale(LC_TIME));
            EXPECT_EQ(sExpected, szFirst) << sVariable;
        });
    }
}

TEST(ProcessTest, TellsWhoTheUserIs) {
    const bool bRoot = Holds("test $(id -u) = 0");
    InChild([&] {
        clearenv();
        EXPECT_EQ(bRoot, LIsUserRoot());
        EXPECT_FALSE(LSwitchToUser()) << "neither LOGNAME nor USER";
        setenv("LOGNAME", std::string(10000, 'x').c_str(), 1);
        setenv("USER", "root", 1);
        EXPECT_FALSE(LSwitchToUser());
        EXPECT_TRUE(LIsUserRoot() && LIsUserRunningAsAdministrator());
        if (!bRoot)
            return;
        const gid_t groups[] = {0, 4242};
        EXPECT_TRUE(setgroups(2, groups) == 0 && LSwitchToRoot());
        setenv("LOGNAME", "", 1);
        setenv("USER", "nobody", 1);
        EXPECT_TRUE(LSwitchToUser());
        EXPECT_TRUE(Holds("PATH=/usr/bin:/bin; test \"$(id -un; id -G)\" = \"nobody\n$(id -G nobody)\""));
        EXPECT_FALSE(LIsUserRoot() || LIsUserAdministrator() || LSwitchToRoot());
        groupsAreAdmin = true;
        EXPECT_TRUE(LIsUserAdministrator());
    });
}

} // namespace
