// Mach threads: their numbers and their scheduling policy.
//
// Thread-safety: reentrant.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

using mach_port_t = std::uint32_t;
using kern_return_t = int;
constexpr kern_return_t KERN_SUCCESS = 0;
constexpr kern_return_t KERN_INVALID_ARGUMENT = 4;

// The calling thread's number: small, positive, the same for the thread's whole life, and never that of
// another living thread. A template, so that it yields to a program's own function of that name.
template <typename = void>
mach_port_t mach_thread_self();

constexpr int THREAD_TIME_CONSTRAINT_POLICY = 2;
constexpr std::uint32_t THREAD_TIME_CONSTRAINT_POLICY_COUNT = 4;

// Times in nanoseconds.
struct thread_time_constraint_policy_data_t {
    std::uint32_t period;
    std::uint32_t computation;
    std::uint32_t constraint;
    std::uint32_t preemptible;
};

// The default parameters of the policy; `getDefault` comes back true, since no thread has others to report.
kern_return_t thread_policy_get(mach_port_t thread, int policy, thread_time_constraint_policy_data_t* data,
                                std::uint32_t* count, bool* getDefault);

// Makes the thread a real-time one, or, where the process may not, one of higher priority; where it may not
// even that, nothing changes. What the thread starts, threads and processes, is not raised. KERN_SUCCESS, or
// KERN_INVALID_ARGUMENT for another policy or count.
kern_return_t thread_policy_set(mach_port_t thread, int policy,
                                const thread_time_constraint_policy_data_t* data, std::uint32_t count);

// Takes that back: the thread is scheduled as the process's main thread is. What SCHED_OTHER is here, whatever
// the priority: the system has no others. Where no thread of the process was raised nothing is asked of the system.
void port_thread_set_normal(mach_port_t thread);

#pragma GCC visibility pop
