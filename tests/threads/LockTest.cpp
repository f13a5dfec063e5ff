#include "threads/LLockFile.h"
#include "threads/LLockObjectShared.h"
#include "threads/LSystemLockMutex.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <port/bsd.h>
#include <random>
#include <string>
#include <sys/file.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct TemporaryFolder {
    std::string path;
    TemporaryFolder() {
        char name[] = "/tmp/locks-XXXXXX";
        path = mkdtemp(name);
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path); }
};

// A process that does its work, says so, and then waits to be killed.
class Holder {
public:
    explicit Holder(const std::function<bool()>& work) {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        process = fork();
        if (process == 0) {
            const char cAnswer = work() ? 'y' : 'n';
            _exit(write(ends[1], &cAnswer, 1) == 1 && pause() == 0 ? 0 : 1);
        }
        close(ends[1]);
        char cAnswer = '?';
        EXPECT_EQ(read(ends[0], &cAnswer, 1), 1);
        EXPECT_EQ(cAnswer, 'y');
        close(ends[0]);
    }
    ~Holder() { Kill(); }
    void Kill() {
        if (process > 0)
            kill(process, SIGKILL);
        if (process > 0)
            waitpid(process, nullptr, 0);
        process = -1;
    }

private:
    pid_t process = -1;
};

// Readers and writers keep counts that no legal history can break: writers are alone, an upgraded reader is.
TEST(LLockObjectSharedTest, RandomTrafficKeepsItsPromise) {
    LLockObjectShared lock;
    std::atomic<int> nReaders{0}, nWriters{0}, nFaults{0};
    std::atomic<bool> bUpgrading{false};
    const auto check = [&](bool bGood) { nFaults += bGood ? 0 : 1; };
    const auto write = [&] {
        check(nWriters.fetch_add(1) == 0 && nReaders.load() == 0);
        std::this_thread::yield();
        nWriters.fetch_sub(1);
    };
    const auto traffic = [&](unsigned seed) {
        std::mt19937 random(seed);
        for (int i = 0; i < 3000; ++i) {
            const unsigned kind = random() % 8;
            if (kind == 0) {
                lock.LockExclusive();
                write();
                lock.UnlockExclusive();
                continue;
            }
            if (kind == 1) {
                lock.LockExclusive();
                write();
                nReaders.fetch_add(1);
                lock.DowngradeLock();
            } else {
                lock.LockShared();
                nReaders.fetch_add(1);
            }
            check(nWriters.load() == 0);
            nReaders.fetch_sub(1);
            if (kind == 2 && !bUpgrading.exchange(true)) {
                lock.UpgradeLock();
                write();
                lock.UnlockExclusive();
                bUpgrading.store(false);
            } else {
                lock.UnlockShared();
            }
        }
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 6; ++seed)
        threads.emplace_back(traffic, seed);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(nFaults.load(), 0);
}

class SystemLockTest : public testing::Test {
protected:
    void SetUp() override { sName = "lock test " + std::to_string(getpid()); }
    void TearDown() override {
        const int nSet = semget(LSystemLockMutex::MakeKey(sName.c_str()), 0, 0);
        if (nSet != -1)
            semctl(nSet, 0, IPC_RMID);
    }
    std::string sName;
};

TEST_F(SystemLockTest, KeysComeFromSignedBytes) {
    EXPECT_EQ(LSystemLockMutex::MakeKey("UID"), 367844708);
    EXPECT_EQ(LSystemLockMutex::MakeKey("caf\xC3\xA9"), -1268641783);
}

TEST_F(SystemLockTest, ExcludesProcessesAndOutlivesAKilledHolder) {
    const char* szName = sName.c_str();
    Holder holder([&] {
        static LSystemLockMutex lock(szName);
        return lock.Lock(1000);
    });
    LSystemLockMutex lock(szName);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(lock.Lock(25));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30)); // three attempts
    holder.Kill();
    EXPECT_TRUE(lock.Lock(2000));
    {
        LSystemLockMutex second(szName);
        EXPECT_FALSE(second.Lock(0));
    }
    lock.Release();
    EXPECT_FALSE(lock.Lock(0)); // spent
    LSystemLockMutex next(szName);
    next.LockForever();
    Holder other([&] {
        static LSystemLockMutex waiting(szName);
        return !waiting.Lock(0);
    });
}

TEST(LLockFileTest, ExcludesAcrossProcessesAndIsFreeAgainWhenTheHolderDies) {
    const TemporaryFolder folder;
    const std::string sPath = folder.path + "/report.txt";
    const std::string sLock = folder.path + "/report.lck";
    Holder holder([&] {
        static LLockFile lock;
        return lock.Lock(sPath.c_str());
    });
    LLockFile lock;
    EXPECT_TRUE(std::filesystem::exists(sLock));
    EXPECT_FALSE(lock.Lock(sPath.c_str()));
    holder.Kill();
    EXPECT_TRUE(lock.Lock(sPath.c_str()));
    EXPECT_TRUE(lock.IsHeld());
    EXPECT_TRUE(lock.Lock((folder.path + "/other").c_str())); // gives the first back
    EXPECT_FALSE(std::filesystem::exists(sLock));
    EXPECT_TRUE(lock.Lock("/no such folder/x.txt")); // no lock file can be made: the caller goes on
    EXPECT_FALSE(lock.IsHeld());
}

TEST(LLockFileTest, OnlyOneOfManyHoldsItAtATime) {
    const TemporaryFolder folder;
    const std::string sPath = folder.path + "/busy.txt";
    std::atomic<int> nInside{0}, nFaults{0}, nHeld{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int nRound = 0; nRound < 400; ++nRound) {
                LLockFile lock;
                if (!lock.Lock(sPath.c_str()))
                    continue;
                nFaults += nInside.fetch_add(1) == 0 ? 0 : 1;
                std::this_thread::yield();
                nInside.fetch_sub(1);
                ++nHeld;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(nFaults.load(), 0);
    EXPECT_GT(nHeld.load(), 0);
}

TEST(LockedOpenTest, NeverEmptiesWhatAnotherHoldsAndNeverShowsAnUnlockedMarker) {
    const TemporaryFolder folder;
    const std::string sPath = folder.path + "/marker";
    const int nHeld = port_open(sPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_EXLOCK | O_NONBLOCK, 0600);
    ASSERT_GE(nHeld, 0);
    ASSERT_EQ(write(nHeld, "kept", 4), 4);
    EXPECT_EQ(port_open(sPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_EXLOCK | O_NONBLOCK, 0600), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(port_open(sPath.c_str(), O_RDWR | O_TRUNC | O_EXLOCK | O_NONBLOCK), -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
    EXPECT_EQ(std::filesystem::file_size(sPath), 4U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path), {}), 1);
    close(nHeld);
    const int nShared = port_open(sPath.c_str(), O_RDONLY | O_SHLOCK | O_NONBLOCK);
    const int nAlso = port_open(sPath.c_str(), O_RDONLY | O_SHLOCK | O_NONBLOCK);
    EXPECT_GE(nShared, 0);
    EXPECT_GE(nAlso, 0);
    EXPECT_EQ(flocktimed(nShared, LOCK_EX | LOCK_NB, 0), -1);
    close(nAlso);
    EXPECT_EQ(flocktimed(nShared, LOCK_EX | LOCK_NB, 100), 0);
    close(nShared);
}

} // namespace
