// Running one measurement in processes of its own: a pair of a server and a client, each pinned to a CPU.
#pragma once

#include "Driver.h"

#include <functional>
#include <sched.h>
#include <string>
#include <vector>

namespace bench {

// Where the two ends of a pair run. Waking a thread on another, idle CPU costs about ten times as much as
// waking one on the same CPU, so latencies are measured both ways.
enum class Placement { OneCpu, TwoCpus };

void pinTo(int cpu);

// Keeps this thread on one CPU for a while.
class Pinned {
public:
    explicit Pinned(int cpu);
    ~Pinned();
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;

private:
    cpu_set_t before_;
};

// NotHere when the machine has too few.
void needProcessorsFor(Placement placement);

// What a pair has used from its start to its end.
struct PairUse {
    double cpu = 0;           // us, of both
    double serverWakeUps = 0; // of all threads
};

// Forks a server and a client, pins both, and returns what the client measures; the server is killed when the client
// has ended. Failure when the client has not done its work after a minute.
Sample measurePair(Placement placement, const std::function<void()>& server,
                   const std::function<Sample()>& client, PairUse* use = nullptr);

// Runs the work in a process of its own, on any CPU: what brings up a main loop is not to leave it to processes that are
// forked later.
Sample measureAlone(const std::function<Sample()>& work);

void pauseFor(int milliseconds); // of 0: at once

// A fresh folder, removed with everything in it when the object goes.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Sends what a client child has measured to the bench, or why it could not, and ends the process without running
// exit handlers.
[[noreturn]] void reportAndExit(Sample sample);
[[noreturn]] void failAndExit(const char* reason);

// The median of the times with their 99th percentile; they are reordered.
Sample distribution(std::vector<double>& times);

} // namespace bench
