// The benchmark driver: named cases, each a floor, the peers a user would pick instead, and our own rows,
// measured side by side. Rows of a case are interleaved within every repetition, so that what the machine
// does meanwhile meets all of them. A row is told by its least, middle and greatest figure; its ratio is the
// median of its ratios to the first row, the floor, each within one repetition.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace bench {

enum class Better { Lower, Higher };

constexpr double kUnknown = -1; // a figure that a row does not have

// What one run of a row gives, in the unit of its case.
struct Sample {
    Sample(double theFigure) : figure(theFigure) {}
    double figure;
    double percentile99 = kUnknown; // of a run that takes the time of each of its rounds
    double cpu = kUnknown;          // us of all processors, both ends, for a piece of a stream
};

// Thrown by a row that did not do its work: the run goes on, and fails at its end. No figure stands for it.
struct Failure : std::runtime_error {
    using runtime_error::runtime_error;
};

// Thrown by a row that this machine cannot run: it is told, and left out.
struct NotHere : std::runtime_error {
    using runtime_error::runtime_error;
};

enum class Whose { Others, Ours };

// One way to do the work of a case. A name that begins with "floor:" or "kernel:" is nothing to pick instead.
struct Row {
    std::string name;
    std::function<Sample()> measure;
    Whose whose = Whose::Others;
};

// For how long a case goes on, beside what its rows need to begin with; what is timed gets five repetitions at
// least. A count tells as much in two as in twenty: what has a lower limit takes about those seconds in all.
struct Effort {
    double seconds = 1.2;
    int most = 25;
};

struct Case {
    std::string name; // as `bench NAME` selects it, for instance "format/%d.%d"
    std::string unit; // "ns", "us", "GB/s", "messages/s" ...
    Better better = Better::Lower;
    std::vector<Row> rows; // the floor first
    Effort effort = {};
};

// Adds cases while static objects are built: one object of this type in each file of cases.
class Register {
public:
    explicit Register(std::function<void(std::vector<Case>&)> fill);
};

// Keeps a value alive so that the compiler cannot drop the work that made it.
template <typename T>
inline void keep(const T& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

// What a row cannot go on without.
inline void need(bool works, const char* what) {
    if (!works)
        throw Failure(what);
}

using Clock = std::chrono::steady_clock;

inline double nanosecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

// Nanoseconds of one call of `work`, over as many calls as fill about `milliseconds`.
template <typename Work>
double nanosecondsPerCall(Work&& work, double milliseconds = 20) {
    std::size_t calls = 1;
    for (;;) {
        const auto start = Clock::now();
        for (std::size_t i = 0; i < calls; ++i)
            work();
        const double spent = nanosecondsSince(start);
        if (spent >= milliseconds * 1e6 / 4)
            return spent / static_cast<double>(calls);
        calls *= 4;
    }
}

// GB/s of `work`, which handles `bytes` bytes a call.
template <typename Work>
double gigabytesPerSecond(std::size_t bytes, Work&& work) {
    return static_cast<double>(bytes) / nanosecondsPerCall(std::forward<Work>(work));
}

} // namespace bench
