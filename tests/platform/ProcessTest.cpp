#include "platform/LProcessUtilities.h"

#include "debug/LDebugThread.h"
#include "support/Bundle.h"
#include "support/Child.h"
#include "support/TemporaryFolder.h"

#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <grp.h>
#include <gtest/gtest.h>
#include <set>
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
    entry->gr_name = bFits ? std::strcpy(buffer, "admin") : nullptr;
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
        EXPECT_TRUE(Holds("PATH=/usr/bin:/bin; test $(id -un) = nobody"));
        EXPECT_FALSE(LIsUserRoot() || LIsUserAdministrator() || LSwitchToRoot());
        groupsAreAdmin = true;
        EXPECT_TRUE(LIsUserAdministrator());
    });
}

std::vector<kinfo_proc> Table() {
    kinfo_proc* pList = nullptr;
    const unsigned long nCount = LGetBSDProcessList(&pList);
    std::vector<kinfo_proc> table(pList, pList + nCount);
    std::free(pList);
    return table;
}

// "id user program", the program of kernel threads and the like being "-", as ps sees them.
std::set<std::string> LinesOfPs() {
    const TemporaryFolder folder;
    Holds(("ps --no-headers -eo pid,euid,exe | sed -E 's| +| |g; s|^ ||; s| .deleted.$||; "
           "s| (/.*)?/([^/]{1,16})[^/]*$| \\2|' >" +
           (folder.root / "lines").string())
              .c_str());
    std::ifstream text(folder.root / "lines");
    std::set<std::string> lines;
    for (std::string sLine; std::getline(text, sLine);)
        lines.insert(sLine);
    return lines;
}

TEST(ProcessTest, TheTableIsThatOfPs) {
    const std::set<std::string> before = LinesOfPs();
    std::set<std::string> ours;
    for (const auto& [process, owner] : Table())
        for (const char* szName : {process.p_comm, "-"})
            ours.insert(std::to_string(process.p_pid) + " " + std::to_string(owner.e_ucred.cr_uid) + " " +
                        szName);
    const std::set<std::string> after = LinesOfPs();
    if (before.empty())
        GTEST_SKIP() << "there is no ps";
    for (const std::string& sLine : before)
        EXPECT_TRUE(ours.contains(sLine) || !after.contains(sLine)) << sLine;
}

TEST(ProcessTest, TheTableWhileItChanges) {
    const pid_t busy = fork();
    for (pid_t child = 1; busy == 0; waitpid(child, nullptr, 0))
        if ((child = fork()) == 0)
            _exit(0);
    for (int i = 0; i < 100; ++i) {
        std::set<pid_t> ids;
        for (const kinfo_proc& process : Table())
            ASSERT_TRUE(ids.insert(process.kp_proc.p_pid).second) << "once each";
        ASSERT_TRUE(ids.contains(busy) && ids.contains(getpid()));
    }
    kill(busy, SIGKILL);
    waitpid(busy, nullptr, 0);
}

TEST(ProcessTest, TooSmallABufferGetsWhatItHolds) {
    const int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL, 0};
    kinfo_proc table[2];
    std::size_t size = 0;
    ASSERT_EQ(0, sysctl(name, 3, nullptr, &size, nullptr, 0));
    EXPECT_GE(size, 17 * sizeof *table);
    size = sizeof table - 1;
    EXPECT_TRUE(sysctl(name, 4, table, &size, nullptr, 0) == -1 && errno == ENOMEM);
    EXPECT_TRUE(size == sizeof *table && table->kp_proc.p_pid == 1);
    EXPECT_TRUE(sysctlbyname("hw.other", nullptr, &size, nullptr, 0) == -1 && errno == ENOENT);
}

TEST(ProcessTest, FindsAProcessByName) {
    const TemporaryFolder folder;
    const std::string sProgram = folder.root / "Command-Name-XYZ-and-more";
    std::filesystem::copy_file("/bin/sleep", sProgram);
    EXPECT_EQ(-1, LGetProcessUid("command-name-xyz"));
    const pid_t child = fork();
    if (child == 0)
        _exit(execl(sProgram.c_str(), "other", "60", nullptr));
    while (LGetBSDProcessUid("COMMAND-name-xyz") != child)
        usleep(1000);
    std::filesystem::remove(sProgram);
    EXPECT_EQ(-1, LGetBSDProcessUid("Command-Name-XYZ-and-more"));
    EXPECT_EQ(child, LGetProcessUid("command-name-xyz"));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(child, LGetProcessUid("anything"));
}

} // namespace
