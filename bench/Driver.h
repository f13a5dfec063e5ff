// The benchmark driver: named cases, each a floor, the peers a user would pick instead, and our own rows,
// measured side by side. Rows of a case are interleaved within every repetition, so that what the machine
// does meanwhile meets all of them; the figure of a row is its median, its ratio the median of its
// per-repetition ratios to the first row, the floor.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

enum class Better { Lower, Higher };

// One way to do the work of a case. `measure` runs it once and returns its figure in the case's unit; a
// negative figure means that the row cannot run here and is reported as missing.
struct Row {
    std::string name;
    std::function<double()> measure;
};

struct Case {
    std::string name; // as `bench NAME` selects it, for instance "format/%d.%d"
    std::string unit; // "ns", "us", "GB/s", "messages/s" ...
    Better better = Better::Lower;
    std::vector<Row> rows; // the floor first
    int repetitions = 7;
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
