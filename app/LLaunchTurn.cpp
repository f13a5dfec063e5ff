#include "LLaunchTurn.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <port/runtime_folder.h>
#include <unistd.h>

#include "LoginHelperContract.h"

namespace {

constexpr const char* kLockName = LOGINHELPER_IDENTIFIER ".launch";
constexpr unsigned kTurnPatience = 1000; // milliseconds; a helper that is told to end is to end in time

// How long a launch counts for other helpers, in seconds. The ways to start a helper at login are no further
// apart; a login that follows another is.
constexpr std::int64_t kLaunchMemory = 30;

// What the lock's file holds. An application whose program is a script, or that ended at once, is not to be
// found in the process table; and an end of the launching helper is the end of its login.
struct LaunchNote {
    std::int64_t nTime = 0; // seconds on a clock that nobody sets
    std::int64_t nHelper = 0;
};

std::int64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

bool HasLaunched(int nLock) {
    LaunchNote note;
    if (pread(nLock, &note, sizeof note, 0) != sizeof note || note.nHelper <= 0)
        return false;
    const std::int64_t nAge = Now() - note.nTime;
    return nAge >= 0 && nAge <= kLaunchMemory && kill(static_cast<pid_t>(note.nHelper), 0) == 0;
}

} // namespace

void LLaunchTurn::Take() {
    lock.reset(port_lock_in_runtime_folder(kLockName, kTurnPatience));
    if (!lock && errno == EWOULDBLOCK)
        szObstacle = "another helper is launching";
    else if (lock && HasLaunched(lock.get()))
        szObstacle = "another helper launched it a moment ago";
}

void LLaunchTurn::NoteLaunch() const {
    const LaunchNote note{Now(), getpid()};
    // Without the note the next helper still finds the application in the process table.
    [[maybe_unused]] const ssize_t nWritten = pwrite(lock.get(), &note, sizeof note, 0);
}
