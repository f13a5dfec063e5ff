#include <port/bsd.h>
#include <port/internal/exported.h>
#include <port/mach.h>

#include <atomic>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr thread_time_constraint_policy_data_t kDefaultConstraint = {0, 50'000'000, 100'000'000, 1};
constexpr int kRealTimePriority = 1;
constexpr int kRaisedNice = -10;

constinit thread_local mach_port_t self = 0;

// A thread of this process may have another policy than the process.
constinit std::atomic<bool> someChanged{false};

// The child of a fork has one thread, with another number than its original.
void forgetSelf() {
    self = 0;
}

} // namespace

template <typename>
mach_port_t mach_thread_self() {
    if (self == 0) {
        static const int registered = pthread_atfork(nullptr, nullptr, forgetSelf);
        static_cast<void>(registered);
        self = static_cast<mach_port_t>(gettid());
    }
    return self;
}
template PORT_EXPORTED mach_port_t mach_thread_self<>();

template <typename>
int pthread_main_np() {
    return getpid() == gettid() ? 1 : 0;
}
template PORT_EXPORTED int pthread_main_np<>();

kern_return_t thread_policy_get(mach_port_t, int policy, thread_time_constraint_policy_data_t* data,
                                std::uint32_t* count, bool* getDefault) {
    if (policy != THREAD_TIME_CONSTRAINT_POLICY || *count < THREAD_TIME_CONSTRAINT_POLICY_COUNT)
        return KERN_INVALID_ARGUMENT;
    *data = kDefaultConstraint;
    *count = THREAD_TIME_CONSTRAINT_POLICY_COUNT;
    *getDefault = true;
    return KERN_SUCCESS;
}

kern_return_t thread_policy_set(mach_port_t thread, int policy, const thread_time_constraint_policy_data_t*,
                                std::uint32_t count) {
    if (policy != THREAD_TIME_CONSTRAINT_POLICY || count != THREAD_TIME_CONSTRAINT_POLICY_COUNT)
        return KERN_INVALID_ARGUMENT;
    someChanged.store(true);
    const auto id = static_cast<pid_t>(thread);
    sched_param parameters{};
    parameters.sched_priority = kRealTimePriority;
    if (sched_setscheduler(id, SCHED_RR | SCHED_RESET_ON_FORK, &parameters) == 0)
        return KERN_SUCCESS;
    parameters.sched_priority = 0;
    sched_setscheduler(id, SCHED_OTHER | SCHED_RESET_ON_FORK, &parameters);
    setpriority(PRIO_PROCESS, thread, kRaisedNice);
    return KERN_SUCCESS;
}

// Who may not take the reset flag away keeps it.
void port_thread_set_normal(mach_port_t thread) {
    if (!someChanged.load())
        return;
    const auto id = static_cast<pid_t>(thread);
    const sched_param parameters{};
    if (sched_setscheduler(id, SCHED_OTHER, &parameters) != 0)
        sched_setscheduler(id, SCHED_OTHER | SCHED_RESET_ON_FORK, &parameters);
    setpriority(PRIO_PROCESS, thread, getpriority(PRIO_PROCESS, static_cast<id_t>(getpid())));
}
