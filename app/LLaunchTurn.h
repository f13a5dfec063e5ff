// The turn of one helper to look whether the main application runs and to launch it, so that several helpers of
// one login, however they are started, launch it once.
//
// Thread-safety: none; the main thread.
#pragma once

#include <port/UniqueFd.h>

class LLaunchTurn {
public:
    // Takes the turn; waits up to a second for another helper of this user that has it. The turn lasts as long as
    // the object, and ends with the process that has it.
    void Take();

    // Null when this helper may launch; else why not, for people: another helper is at it still, or has launched a
    // moment ago and runs on. Where there can be no lock every helper may.
    const char* GetObstacle() const { return szObstacle; }

    // Tells the helpers that come next that this one has launched.
    void NoteLaunch() const;

    // Gives the turn to the next helper.
    void End() { lock.reset(); }

private:
    port::UniqueFd lock;
    const char* szObstacle = nullptr;
};
