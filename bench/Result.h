// What the driver has measured, for those who show it.
#pragma once

#include "Driver.h"

#include <string>
#include <string_view>
#include <vector>

namespace bench {

struct RowResult {
    std::string name;
    Whose whose = Whose::Others;
    std::vector<double> figures; // none when the row was not run, `missing` says why then
    std::vector<double> ratios;
    std::vector<double> percentiles99;
    std::vector<double> cpus;
    std::string missing;

    double least() const;
    double greatest() const;
};

struct CaseResult {
    std::string name;
    std::string unit;
    Better better = Better::Lower;
    std::vector<RowResult> rows;

    std::string_view group() const { return std::string_view(name).substr(0, name.find('/')); }
    std::string_view title() const { return std::string_view(name).substr(name.find('/') + 1); }
};

// The middle of the values, kUnknown of none.
double median(std::vector<double> values);

// Whether a user could pick the row instead of ours.
bool isPeer(const RowResult& row);

// One line about the machine, the compiler, and what may move figures: the processes that run, the variables of
// the environment, the load.
std::string machine();

// For people, as soon as a case is done.
void printText(const CaseResult& result);
// For a document: the cases of one group, in one table as long as they have the same rows, between two comments that
// name the group.
void printGroup(const std::vector<CaseResult>& group);
// One line for each row of ours that a peer was ahead of.
std::vector<std::string> behind(const std::vector<CaseResult>& results);

// One picture a group in the folder: a bar for each row, with its spread. False when one cannot be written.
bool plot(const std::vector<CaseResult>& results, const std::string& folder);

} // namespace bench
