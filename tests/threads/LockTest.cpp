#include "base/LDeadline.h"
#include "platform/LProcessUtilities.h"
#include "support/SignalStorm.h"
#include "support/TemporaryFolder.h"
#include "threads/LLockFile.h"
#include "threads/LLockObjectShared.h"
#include "threads/LSystemLockMutex.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <random>
#include <sys/file.h>
#include <sys/sem.h>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// A process that does its work and then stands still until it is killed.
// What the work allocates lives as long.
struct Holder {
    explicit Holder(const std::function<bool()>& work) : process(fork()) {
        if (process == 0)
            _exit(work() ? raise(SIGSTOP) : 1);
        siginfo_t state = {};
        while (waitid(P_PID, static_cast<id_t>(process), &state, WSTOPPED | WEXITED | WNOWAIT) != 0 &&
               errno == EINTR) {
        }
        EXPECT_EQ(state.si_code, CLD_STOPPED);
    }
    Holder(Holder&&) = delete;
    ~Holder() {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    const pid_t process;
};

void InThreads(unsigned dwCount, const std::function<void(unsigned)>& work) {
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < dwCount; ++i)
        threads.emplace_back(work, i);
}

// Readers and writers keep counts that no legal history can break: writers are alone, an upgraded reader is.
TEST(LLockObjectSharedTest, RandomTrafficKeepsItsPromise) {
    LLockObjectShared lock;
    std::atomic<int> nReaders{0}, nWriters{0}, nFaults{0};
    std::atomic<bool> bUpgrading{false};
    const auto write = [&] {
        nFaults += nWriters.fetch_add(1) == 0 && nReaders.load() == 0 ? 0 : 1;
        std::this_thread::yield();
        nWriters.fetch_sub(1);
    };
    InThreads(6, [&](unsigned seed) {
        // It would wake up those who are forgotten, too.
        const std::jthread storm = seed % 2 == 0 ? SignalStorm() : std::jthread();
        std::mt19937 random(seed);
        for (int i = 0; i < 3000; ++i) {
            const unsigned kind = random() % 8;
            if (kind < 2) {
                lock.LockExclusive();
                write();
                lock.DowngradeLock();
            } else {
                lock.LockShared();
            }
            nReaders.fetch_add(1);
            nFaults += nWriters.load();
            nReaders.fetch_sub(1);
            const bool bUpgrade = kind % 2 == 0 && !bUpgrading.exchange(true);
            if (bUpgrade) {
                lock.UpgradeLock();
                write();
                bUpgrading.store(false);
            }
            bUpgrade ? lock.UnlockExclusive() : lock.UnlockShared();
        }
    });
    EXPECT_EQ(nFaults.load(), 0);
}

// The other one's last word would go into the new signal, which has the descriptors of the lock.
TEST(LLockObjectSharedTest, IsDestroyedByWhoHeldItLast) {
    constexpr int nRounds = 20000;
    std::atomic<LLockObjectShared*> pNext{nullptr};
    std::atomic<int> nFaults{0};
    const std::jthread last([&] {
        for (int i = 0; i < nRounds; ++i) {
            LLockObjectShared* pLock;
            while ((pLock = pNext.load()) == nullptr)
                std::this_thread::yield();
            pLock->LockExclusive();
            pLock->UnlockExclusive();
            delete pLock;
            const LSignalObject signal;
            pNext = nullptr;
            std::this_thread::yield();
            nFaults += signal.IsSignaled() ? 1 : 0;
        }
    });
    for (int i = 0; i < nRounds; ++i) {
        auto* const pLock = new LLockObjectShared;
        pLock->LockShared();
        pNext = pLock;
        for (int nSpins = i % 200; nSpins > 0; --nSpins)
            std::atomic_signal_fence(std::memory_order_seq_cst); // keeps the loop
        pLock->UnlockShared();
        while (pNext != nullptr)
            std::this_thread::yield();
    }
    EXPECT_EQ(nFaults, 0);
}

TEST(SystemLockTest, ExcludesProcessesAndOutlivesAKilledHolder) {
    const std::string sName = "lock test " + std::to_string(getpid());
    const char* szName = sName.c_str();
    auto holder = std::make_unique<Holder>([&] { return (new LSystemLockMutex(szName))->Lock(1000); });
    LSystemLockMutex(szName).Release(); // what it does not hold it does not give back
    LSystemLockMutex lock(szName);
    const std::jthread storm = SignalStorm();
    const LDeadline threeAttempts(30);
    EXPECT_FALSE(lock.Lock(25));
    EXPECT_TRUE(threeAttempts.IsPast());
    holder.reset();
    EXPECT_TRUE(lock.Lock(2000));
    lock.Release();
    EXPECT_FALSE(lock.Lock(0)); // spent
    LSystemLockMutex next(szName);
    next.LockForever(); // free, so no POSIX signal can end a wait
    EXPECT_FALSE(LSystemLockMutex(szName).Lock(0));
    EXPECT_EQ(semctl(semget(LSystemLockMutex::MakeKey(szName), 0, 0), 0, IPC_RMID), 0);
    EXPECT_EQ(LSystemLockMutex::MakeKey("UID"), 367844708);
    EXPECT_EQ(LSystemLockMutex::MakeKey("caf\xC3\xA9"), -1268641783); // the bytes are signed
    const Holder hostile([] { return (new LSystemLockMutex("UID"))->Lock(1000); });
    EXPECT_EQ(LGetProcessUid("nobody is called so"), -1) << "and it ends";
}

struct LLockFileTest : testing::Test, TemporaryFolder {
    const std::string sPath = root / "report.txt";
};

TEST_F(LLockFileTest, ExcludesAcrossProcessesAndIsFreeAgainWhenTheHolderDies) {
    auto holder = std::make_unique<Holder>([&] { return (new LLockFile)->Lock(sPath.c_str()); });
    LLockFile lock;
    EXPECT_TRUE(fs::exists(root / "report.lck"));
    EXPECT_FALSE(lock.Lock(sPath.c_str()));
    holder.reset();
    EXPECT_TRUE(lock.Lock(sPath.c_str()));
    EXPECT_TRUE(lock.Lock((root / "other").c_str())); // gives the first back
    EXPECT_FALSE(fs::exists(root / "report.lck"));
    std::ofstream(root / "victim") << "kept";
    fs::create_symlink("victim", root / "report.lck");
    for (const std::string& sNone : {"/no such folder/x.txt"s, sPath}) { // the caller goes on without
        EXPECT_TRUE(lock.Lock(sNone.c_str()));
        EXPECT_FALSE(lock.IsHeld());
    }
    EXPECT_EQ(fs::file_size(root / "victim"), 4U);
}

TEST_F(LLockFileTest, OnlyOneOfManyHoldsItAtATime) {
    std::atomic<int> nInside{0}, nFaults{0};
    InThreads(4, [&](unsigned) {
        for (int nRound = 0; nRound < 400; ++nRound) {
            LLockFile lock;
            if (!lock.Lock(sPath.c_str()))
                continue;
            nFaults += nInside.fetch_add(1);
            std::this_thread::yield();
            nInside.fetch_sub(1);
        }
    });
    EXPECT_EQ(nFaults.load(), 0);
}

TEST_F(LLockFileTest, LockedOpensNeverEmptyWhatAnotherHoldsAndNeverShowAnUnlockedMarker) {
    const auto open = [&](int nFlags) { return port_open(sPath.c_str(), nFlags | O_NONBLOCK, 0600); };
    const port::UniqueFd held(open(O_RDWR | O_CREAT | O_EXCL | O_EXLOCK));
    ASSERT_EQ(write(held.get(), "kept", 4), 4);
    EXPECT_EQ(open(O_RDWR | O_CREAT | O_EXCL | O_EXLOCK), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(open(O_RDWR | O_TRUNC | O_EXLOCK), -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(fs::file_size(sPath), 4U);
    EXPECT_EQ(std::distance(fs::directory_iterator(root), {}), 1);
}

TEST_F(LLockFileTest, ATimedLockIsHadWhenItsHolderIsKilledMeanwhile) {
    auto holder = std::make_unique<Holder>(
        [&] { return port_open(sPath.c_str(), O_RDWR | O_CREAT | O_EXLOCK, 0600) != -1; });
    const port::UniqueFd file(port_open(sPath.c_str(), O_RDONLY));
    const std::jthread storm = SignalStorm();
    EXPECT_EQ(flocktimed(file.get(), LOCK_SH | LOCK_NB, 0), -1);
    const std::jthread killer([&] {
        usleep(10000);
        holder.reset();
    });
    EXPECT_EQ(flocktimed(file.get(), LOCK_SH | LOCK_NB, 2000), 0);
}

} // namespace
