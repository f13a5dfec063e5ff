// Running one measurement in processes of its own: a pair of a server and a client, each pinned to a CPU.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

// Where the two ends of a pair run. Waking a thread on another, idle CPU costs about ten times as much as
// waking one on the same CPU, so latencies are measured both ways.
enum class Placement { OneCpu, TwoCpus };

void pinTo(int cpu);

// Forks a server and a client, pins both, and returns the figure that the client computes. The client is
// given the server's process id; the server is killed when the client has ended. Negative when either failed.
double measurePair(Placement placement, const std::function<void()>& server,
                   const std::function<double()>& client);

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

// Sends the figure of a client child to the bench and ends the process without running exit handlers.
[[noreturn]] void reportAndExit(double figure);

// The median of the values; they are reordered.
double medianOf(std::vector<double>& values);

} // namespace bench
