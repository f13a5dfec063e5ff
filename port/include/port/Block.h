// A function object of any type that is called with these arguments, or none: what queues and connections are given
// to call. Headers that everybody includes stand on it, and <functional> alone is longer than <string>.
//
// Thread-safety: as a plain value; calls at the same time are up to the function. A copy has a copy of the function.
// Three words are kept in place, what is larger by an allocation.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#pragma GCC visibility push(default)

namespace port {

template <typename... Arguments>
class Block {
public:
    constexpr Block() = default;
    constexpr Block(std::nullptr_t) {}
    template <typename Function>
    requires(!std::is_same_v<Function, Block> && std::is_invocable_v<Function&, Arguments...>)
        Block(Function function) {
        make<Function>(bytes_, std::move(function));
        actions_ = &kActionsOf<Function>;
    }
    Block(const Block& other) {
        if (other.actions_ != nullptr)
            other.actions_->copy(other.bytes_, bytes_);
        actions_ = other.actions_;
    }
    Block(Block&& other) noexcept { take(other); }
    Block& operator=(Block other) noexcept {
        reset();
        take(other);
        return *this;
    }
    ~Block() { reset(); }

    explicit operator bool() const { return actions_ != nullptr; }
    // Of a block that is not empty.
    void operator()(Arguments... arguments) const {
        actions_->call(bytes_, std::forward<Arguments>(arguments)...);
    }

private:
    static constexpr std::size_t kBytes = 3 * sizeof(void*);
    static constexpr std::size_t kAlignment = alignof(void*);
    struct Actions {
        void (*call)(void* held, Arguments... arguments);
        void (*copy)(void* from, void* to);
        void (*move)(void* from, void* to); // nothing is left to be destroyed in `from`
        void (*destroy)(void* held);
    };

    template <typename Held>
    static constexpr bool kInPlace = sizeof(Held) <= kBytes&& std::is_nothrow_move_constructible_v<Held> &&
                                     alignof(Held) <= kAlignment;

    template <typename Held, typename Source>
    static void make(void* bytes, Source&& source) {
        if constexpr (kInPlace<Held>)
            ::new (bytes) Held(std::forward<Source>(source));
        else
            ::new (bytes) Held*(new Held(std::forward<Source>(source)));
    }
    template <typename Held>
    static Held& in(void* bytes) {
        if constexpr (kInPlace<Held>)
            return *static_cast<Held*>(bytes);
        else
            return **static_cast<Held**>(bytes);
    }
    template <typename Held>
    static void destroy(void* bytes) {
        if constexpr (kInPlace<Held>)
            in<Held>(bytes).~Held();
        else
            delete &in<Held>(bytes);
    }
    template <typename Held>
    static void move(void* from, void* to) {
        if constexpr (kInPlace<Held>) {
            make<Held>(to, std::move(in<Held>(from)));
            destroy<Held>(from);
        } else {
            ::new (to) Held*(&in<Held>(from));
        }
    }

    template <typename Held>
    static constexpr Actions kActionsOf{
        [](void* held, Arguments... arguments) { in<Held>(held)(std::forward<Arguments>(arguments)...); },
        [](void* from, void* to) { make<Held>(to, std::as_const(in<Held>(from))); },
        move<Held>,
        destroy<Held>,
    };

    void take(Block& other) noexcept {
        actions_ = std::exchange(other.actions_, nullptr);
        if (actions_ != nullptr)
            actions_->move(other.bytes_, bytes_);
    }
    void reset() {
        if (actions_ != nullptr)
            std::exchange(actions_, nullptr)->destroy(bytes_);
    }

    const Actions* actions_ = nullptr;
    alignas(kAlignment) mutable std::byte bytes_[kBytes];
};

} // namespace port

#pragma GCC visibility pop
