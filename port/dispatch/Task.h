// One piece of work: any callable of up to six words, kept without an allocation, called once.
//
// Thread-safety: as a plain value.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <port/no_memory.h>
#include <type_traits>
#include <utility>

namespace port {

class Task {
public:
    Task() = default;
    template <typename Function>
    explicit Task(Function function) {
        static_assert(sizeof(Function) <= kBytes);
        static_assert(alignof(Function) <= alignof(std::max_align_t));
        static_assert(std::is_nothrow_move_constructible_v<Function>);
        ::new (static_cast<void*>(bytes_)) Function(std::move(function));
        actions_ = &kActionsOf<Function>;
    }
    Task(Task&& other) noexcept { take(other); }
    Task& operator=(Task&& other) noexcept {
        if (this != &other) {
            reset();
            take(other);
        }
        return *this;
    }
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;
    ~Task() { reset(); }

    explicit operator bool() const { return actions_ != nullptr; }
    // An exception that leaves the work ends the process.
    void operator()() noexcept {
        try {
            actions_->call(bytes_);
        } catch (const std::bad_alloc&) {
            port_end_without_memory();
        }
    }
    void reset() {
        if (actions_ != nullptr)
            std::exchange(actions_, nullptr)->destroy(bytes_);
    }

private:
    static constexpr std::size_t kBytes = 48;
    struct Actions {
        void (*call)(void* held);
        void (*move)(void* from, void* to); // and destroys `from`
        void (*destroy)(void* held);
    };

    template <typename Held>
    static constexpr Actions kActionsOf{
        [](void* held) { (*static_cast<Held*>(held))(); },
        [](void* from, void* to) {
            ::new (to) Held(std::move(*static_cast<Held*>(from)));
            std::destroy_at(static_cast<Held*>(from));
        },
        [](void* held) { std::destroy_at(static_cast<Held*>(held)); },
    };

    void take(Task& other) noexcept {
        actions_ = std::exchange(other.actions_, nullptr);
        if (actions_ != nullptr)
            actions_->move(other.bytes_, bytes_);
    }

    const Actions* actions_ = nullptr;
    alignas(std::max_align_t) std::byte bytes_[kBytes];
};

} // namespace port
