// The operations whose costs are counted.
#pragma once

#include "../Driver.h"

#include <functional>
#include <string>
#include <vector>

namespace counts {

// For one operation; bench::kUnknown where it was not counted.
struct Counts {
    double calls = bench::kUnknown;
    double syncs = bench::kUnknown;
    double allocations = bench::kUnknown;
    double wakeUps = bench::kUnknown;
};

struct Operation {
    std::string name; // as in the table
    std::function<Counts()> ours;
    std::function<Counts()> bare; // the same with the host's calls alone, where there is such a thing
};

using Work = std::function<void(unsigned times)>;

// Counts work that does the operation so many times: what more of them cost more, so that preparation does not count.
std::function<Counts()> counted(Work work, unsigned few = 20, unsigned more = 100);

// The same with a folder of its own, in which is prepared what is not to be counted.
using FolderWork = std::function<void(const std::string& folder, unsigned times)>;
std::function<Counts()> countedIn(FolderWork prepare, FolderWork work, unsigned few = 20,
                                  unsigned more = 100);

std::vector<Operation> fileOperations();
std::vector<Operation> messageOperations();
std::vector<Operation> threadOperations();
std::vector<Operation> textOperations();

} // namespace counts
