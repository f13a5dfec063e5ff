// What is looked at for costs that grow faster than the work.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace growth {

// n log n, as instructions are counted at n, 2n and 4n.
constexpr double kMostExponent = 1.25;

struct Case {
    std::string name;
    unsigned n; // the first of three sizes: n, 2n, 4n
    // Prepares so many; what it returns is counted.
    std::function<std::function<void()>(unsigned n)> prepare;
    double most = kMostExponent; // the exponent
    std::string why = {};        // it may be more than n log n, and the cheap way
};

// Ends the count, and the process: for work that cannot return.
[[noreturn]] void finish();

std::vector<Case> objectCases(); // of memory alone
std::vector<Case> fileCases();
std::vector<Case> eventCases(); // threads, events, messages

} // namespace growth
