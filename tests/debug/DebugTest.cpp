// What a process tells of itself: how it ends, what it leaves for the next run, and what its threads do.
#include <algorithm>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <port/bsd.h>
#include <port/mach.h>
#include <thread>

#include "debug/LDebugThread.h"
#include "support/Bundle.h"
#include "support/ChildProcess.h"

namespace {

class Ending : public testing::Test {
protected:
    // A sanitizer's own handlers, where there is one, would come before the library's.
    Ending() {
        for (const char* options : {"ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"})
            setenv(options, "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:detect_leaks=0",
                   1);
        unsetenv("XDG_CACHE_HOME");
        signal(SIGPIPE, SIG_DFL); // children would inherit that this process ignores it
    }
    static auto Run(const std::string& how, const char* host = "debug_host") {
        return std::make_unique<ChildProcess>(std::vector<std::string>{HostPath(host), how});
    }

    const PrivatePlace place;
    const std::string marker = place.Path() + "/.cache/_loginhelper_rl_";
};

TEST_F(Ending, BySignals) {
    const std::tuple<std::string, int, std::string> rows[] = {
        {"segv", 154, "SIGNAL11\nclean\n"},
        {"bus", 154, "SIGNAL7\nclean\n"},
        {"fpe", 154, "SIGNAL8\nclean\n"},
        {"ill", 154, "SIGNAL4\nclean\n"},
        {"malloc", 154, "SIGNAL11\n"},
        {"stack", 154, "SIGNAL11\nclean\n"},
        {"thread", 154, "SIGNAL11\nclean\n"},
        {"core", 154, "SIGNAL11\nclean\n"},
        {"quit", 128 + SIGSEGV, "SIGNAL3\n"}, // the handler works once; a fault ends the process nevertheless
        {std::to_string(SIGINT), 0, "clean\n"},
        {std::to_string(SIGTERM), 0, "clean\n"},
        {std::to_string(SIGPIPE), 0, "clean\n"}, // ignored
        {"+segv", 154, "SIGNAL11\nclean\n"},     // the first end counts
        {"+2", 0, "clean\n"},
        {"stuck", 128 + SIGTERM, ""}, // the clean-up takes too long
    };
    const std::filesystem::path former = std::filesystem::current_path();
    std::filesystem::current_path(place.Path());
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (const auto& [how, expected, output] : rows)
        children.push_back(Run(how));
    std::filesystem::current_path(former);
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& [how, expected, output] = rows[i];
        const int status = children[i]->Wait();
        if (status == 77) // the allocator is a sanitizer's
            continue;
        EXPECT_EQ(status, expected) << how;
        EXPECT_EQ(children[i]->ReadAll(), output) << how;
    }
    const std::string pattern = FileText("/proc/sys/kernel/core_pattern");
    if (pattern[0] == '|' || pattern.find('/') != pattern.npos)
        return; // the machine keeps it elsewhere
    std::string left;
    for (const auto& entry : std::filesystem::directory_iterator(place.Path()))
        left += entry.path().filename().string() + " ";
    EXPECT_NE(left.find("core"), left.npos) << left;
}

TEST_F(Ending, AsTheSystemHasItWhereTheHandlersAreLeftOut) {
    for (const std::string signal : {"11", "15", "13"}) {
        const auto child = Run(signal, "debug_guest");
        EXPECT_EQ(child->Wait(), 128 + std::stoi(signal));
        EXPECT_EQ(child->ReadAll(), "");
    }
}

TEST_F(Ending, TellsACrashedRunFromALiveOneAndFromACleanOne) {
    setenv("LOGNAME", "../me", 1); // no way out of the folder
    const std::string path = marker + ".._me";
    const auto before = static_cast<std::uint32_t>(time(nullptr));
    const auto first = Run("marker");
    ASSERT_EQ(first->ReadLine(), "has " + path);
    std::uint32_t times[2];
    ASSERT_EQ(FileText(path).size(), sizeof times);
    memcpy(times, FileText(path).data(), sizeof times);
    EXPECT_LE(times[0] - before, 10U);
    EXPECT_LE(times[1] - times[0] * 1000, 1100U);

    const auto second = Run("marker");
    EXPECT_EQ(second->ReadLine(), "none " + path) << "the first one lives";
    second->Kill(SIGTERM);
    EXPECT_EQ(second->Wait(), 0);
    EXPECT_TRUE(std::filesystem::exists(path)) << "it is not the second one's";

    first->Kill(SIGKILL);
    first->Wait();
    {
        const port::UniqueFd other(
            port_open(path.c_str(), O_RDONLY | O_SHLOCK)); // a run that looks at it, too
        EXPECT_EQ(Run("marker")->ReadLine(), "none " + path);
        EXPECT_TRUE(std::filesystem::exists(path)) << "whoever has it alone deletes it";
    }
    const auto third = Run("marker");
    const time_t started = times[0];
    char line[100];
    strftime(line, sizeof line, "the previous run, started %F %T UTC, ended without its clean end",
             gmtime(&started));
    EXPECT_EQ(third->ReadLine(), line);
    EXPECT_EQ(third->ReadLine(), "none " + path);
    EXPECT_FALSE(std::filesystem::exists(path));

    setenv("LOGNAME", "", 1);
    setenv("USER", "you", 1);
    const auto fourth = Run("marker");
    EXPECT_EQ(fourth->ReadLine(), "has " + marker + "you");
    fourth->Kill(SIGTERM);
    EXPECT_EQ(fourth->Wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(marker + "you")) << "ended cleanly";

    const auto fifth = Run("marker");
    fifth->ReadLine();
    std::filesystem::rename(marker + "you", marker + "old");
    const auto sixth = Run("marker");
    sixth->ReadLine();
    fifth->Kill(SIGTERM);
    EXPECT_EQ(fifth->Wait(), 0);
    EXPECT_TRUE(std::filesystem::exists(marker + "you")) << "it is the sixth one's by now";
}

std::string Identification() {
    char szOut[LPathBufferSize];
    LDebugGenerateXIString(szOut, "A", "B");
    return szOut;
}

TEST(DebugStatus, TellsThePhaseOfTheMainThread) {
    gwDebugCurrentCommand = 2;
    LDebugThreadDataStartThread("MAINTHREAD");
    EXPECT_EQ(Identification(), "A-MacIntel1009-B-MAINGuiIni2");
    LDebugThreadDataStopThread();
}

void TellAll() {
    std::string digits = std::to_string(1000 + mach_thread_self() % 1000).substr(1);
    std::reverse(digits.begin(), digits.end());
    const std::string begin = "A-MacIntel1009-B-";
    LDebugThreadDataStartThread(nullptr);
    EXPECT_EQ(Identification(), begin) << "a number tells nothing";
    LDebugThreadSetName("LTCPListener");
    {
        const LBugReportBlockScope outer("outer");
        { const LBugReportBlockScope inner("in"); }
        EXPECT_EQ(Identification(), begin + "oute" + digits);
    }
    LDebugThreadSetLastDialog("Open");
    EXPECT_EQ(Identification(), begin + "LTCP" + digits + "Open" + digits);
    LDebugThreadSetLastDialog(std::string(40, 'x').c_str());
    LDebugThreadStatusSet(std::string(300, 'y').c_str());
    std::thread(LDebugThreadStatusClear).join(); // not its own
    EXPECT_EQ(Identification(), begin + "LTCP" + digits + std::string(31, 'x') + std::string(204, 'y'));
    LDebugThreadDataStopThread();
}

TEST(DebugStatus, TellsTagDialogAndStatusOfAThread) {
    std::thread(TellAll).join();
}

// More threads than there are entries come and go; then the last of the table's threads is the only one left.
TEST(DebugStatus, TableIsSharedByManyThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < LDebugMaxThreads + 10; ++i)
        threads.emplace_back([] {
            for (int round = 0; round < 20; ++round) {
                LDebugThreadDataStartThread("many");
                LDebugThreadStatusSet("one of them");
                const std::string text = Identification();
                EXPECT_NE(text.find("-B-many") == text.npos, text.find("-B-Unknown") == text.npos) << text;
                LDebugThreadStatusClear();
                LDebugThreadDataStopThread();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(gnDebugThreads, 0);
    for (int i = 0; i < LDebugMaxThreads - 1; ++i)
        std::thread(LDebugThreadDataStartThread, "stay").join();
    LDebugThreadDataStartThread("last");
    std::thread([] {
        LDebugThreadDataStartThread("none is free");
        EXPECT_EQ(Identification(), "A-MacIntel1009-B-Unknown");
    }).join();
    for (int i = 0; i < LDebugMaxThreads - 1; ++i)
        gDebugThreadData[i].dwThread = LDebugThreadFree;
    LDebugThreadDataStopThread();
    EXPECT_EQ(gnDebugThreads, 0) << "shrinks past every free entry";
}

} // namespace
