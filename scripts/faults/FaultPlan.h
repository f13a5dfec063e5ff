// What the sweep tells the shim, through one file that both map: which call fails, how, and how often it came.
//
// Thread-safety: the counts are atomic; the rest is written before the program starts.
#pragma once

#include <atomic>
#include <cstdint>

struct FaultPlan {
    static constexpr const char* szVariable = "FAULT_PLAN";    // its path
    static constexpr int nShort = -1;                          // not an error: half of the bytes
    static constexpr const char* szDescriptors = "descriptor"; // all calls that make one

    char szProgram[32]; // the short name of the one that meets faults; its children do not
    char szCall[24];
    std::int32_t nError;
    bool bForGood;      // all later calls fail, too
    std::uint64_t dwAt; // the first one is 1
    std::atomic<std::uint64_t> dwCalls;
    std::atomic<std::uint64_t> dwFailed;
};
