// What the workers take turns at: an object that is in line at most once at a time.
//
// Thread-safety: the list belongs to the pool, whose lock covers it.
#pragma once

#include <utility>

namespace port {

// Work that may come Soon need not come before a fraction of a millisecond has passed.
enum class Urgency { Now, Soon };

class Runnable {
public:
    // One bounded turn, on a worker. Whoever puts an object in line keeps it alive until its turn has begun.
    virtual void run() = 0;

protected:
    virtual ~Runnable() = default;

private:
    friend class RunList;
    Runnable* next_ = nullptr;
};

class RunList {
public:
    bool isEmpty() const { return first_ == nullptr; }
    void push(Runnable& work) {
        *end_ = &work;
        end_ = &work.next_;
    }
    // Null when nothing is in line.
    Runnable* pop() {
        Runnable* work = first_;
        if (work == nullptr)
            return nullptr;
        first_ = std::exchange(work->next_, nullptr);
        if (first_ == nullptr)
            end_ = &first_;
        return work;
    }

private:
    Runnable* first_ = nullptr;
    Runnable** end_ = &first_;
};

} // namespace port
