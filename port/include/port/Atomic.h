// An atomic value of a scalar type, for headers that everybody includes: <atomic> alone is longer than <string>.
//
// Thread-safety: full. Each operation is sequentially consistent where the caller asks for no less.
#pragma once

#pragma GCC visibility push(default)

namespace port {

enum class Order {
    Relaxed = __ATOMIC_RELAXED,
    AcquireRelease = __ATOMIC_ACQ_REL,
    Sequential = __ATOMIC_SEQ_CST,
};

template <typename T>
class Atomic {
public:
    constexpr Atomic(T value = T{}) : value_(value) {}
    Atomic(const Atomic&) = delete;
    Atomic& operator=(const Atomic&) = delete;

    T load(Order order = Order::Sequential) const {
        return __atomic_load_n(&value_, static_cast<int>(order));
    }
    void store(T value) { __atomic_store_n(&value_, value, __ATOMIC_SEQ_CST); }
    operator T() const { return load(); }
    Atomic& operator=(T value) {
        store(value);
        return *this;
    }

    // What was there before.
    T exchange(T value) { return __atomic_exchange_n(&value_, value, __ATOMIC_SEQ_CST); }
    T fetch_add(T value, Order order = Order::Sequential) {
        return __atomic_fetch_add(&value_, value, static_cast<int>(order));
    }
    T fetch_sub(T value, Order order = Order::Sequential) {
        return __atomic_fetch_sub(&value_, value, static_cast<int>(order));
    }

    // Sets the value when it is the expected one; else false, with the value in `expected`. May fail for no reason.
    bool compare_exchange_weak(T& expected, T value) {
        return __atomic_compare_exchange_n(&value_, &expected, value, true, __ATOMIC_SEQ_CST,
                                           __ATOMIC_SEQ_CST);
    }

private:
    T value_;
};

} // namespace port

#pragma GCC visibility pop
