#include "base/LDeadline.h"
#include "support/SignalStorm.h"
#include "support/TemporaryFolder.h"
#include "threads/LSignalObject.h"
#include "threads/LSignalObjectNamed.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

namespace {

TEST(SignalTest, TimesOutOnTimeAndStaysSetUntilItIsReset) {
    LSignalObject signal;
    const LDeadline deadline(119);
    EXPECT_FALSE(signal.WaitSignal(120));
    EXPECT_TRUE(deadline.IsPast());
    int seen = 0;
    const std::jthread setter([&] {
        seen = 42;
        signal.Signal();
    });
    EXPECT_TRUE(signal.WaitSignal(LNoTimeLimit));
    EXPECT_EQ(seen, 42); // the wait orders memory: the thread sanitizer looks at this line
    // More settings than a pipe holds bytes: the surplus must neither block nor be lost sight of.
    for (int i = 0; i < 70000; ++i)
        signal.Signal();
    EXPECT_TRUE(signal.IsSignaled());
    signal.Reset();
    EXPECT_FALSE(signal.IsSignaled());
}

TEST(SignalTest, WaitsForTheFirstOfSeveral) {
    LSignalObject signals[3];
    const LSignalObjectRef first = signals[0], second = signals[1], third = signals[2];
    EXPECT_FALSE(first.WaitSignalTriple(second, third, 0));
    for (const LSignalObject& signal : signals) {
        signal.Signal();
        EXPECT_TRUE(first.WaitSignalTriple(second, third, 0));
        EXPECT_EQ(first.WaitSignalDual(second, 0), &signal != &signals[2]);
        signal.Reset();
    }
}

TEST(SignalTest, GroupsCountAdditionsUpTo256) {
    LSignalObject signal, other, last;
    LSignalObjectGroup group, two;
    for (int i = 0; i < LSignalObjectGroupMaximum - 1; ++i)
        group.Add(signal);
    two.Add(other);
    two.Add(last);
    group.Add(two); // only the lower descriptor still fits
    EXPECT_EQ(group.GetCount(), LSignalObjectGroupMaximum);
    last.Signal();
    EXPECT_FALSE(group.IsSignaled());
    other.Signal();
    EXPECT_TRUE(group.Select(1000));
}

// Both ends in processes of their own, in a private home.
TEST(SignalTest, NamedSignalsReachAnotherProcess) {
    const TemporaryFolder home;
    const std::jthread storm = SignalStorm();
    setenv("XDG_DATA_HOME", home.root.c_str(), 1);
    umask(0);
    const std::string sSocket = home.root / "event";
    {
        LSignalObjectNamed waiting("event");
        EXPECT_FALSE(waiting.WaitSignal(30)); // nobody signals
        EXPECT_FALSE(waiting.WaitSignal(5000)) << "the socket of the wait that timed out is in the way";
        unlink(sSocket.c_str());
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0; i < 200 && access(sSocket.c_str(), F_OK) != 0; ++i)
                usleep(10000);
            usleep(10000);
            LSignalObjectNamed("event").Signal();
            struct stat status = {};
            _exit(lstat(sSocket.c_str(), &status) == 0 && (status.st_mode & 0777) == 0600 ? 0 : 1);
        }
        EXPECT_TRUE(waiting.WaitSignal(LNoTimeLimit));
        waiting.Reset(); // ends, because the signaller has closed its end
        int nStatus = 1;
        while (waitpid(child, &nStatus, 0) != child) { // the storm ends a wait
        }
        EXPECT_EQ(nStatus, 0) << "the mode of the socket";
    }
    umask(022);
    EXPECT_NE(access(sSocket.c_str(), F_OK), 0);
    LSignalObjectNamed("nobody").Signal();
    EXPECT_FALSE(LSignalObjectNamed(std::string(200, 'n').c_str()).WaitSignal(5000));
}

} // namespace
