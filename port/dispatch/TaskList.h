// Tasks in order of arrival, in memory that is kept from one burst to the next.
//
// Thread-safety: none; the queue's lock covers it.
#pragma once

#include "dispatch/Task.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace port {

class TaskList {
public:
    bool isEmpty() const { return first_ == tasks_.size(); }
    std::size_t size() const { return tasks_.size() - first_; }

    void push(Task task) {
        if (first_ >= kCompactAt && first_ >= size())
            compact();
        tasks_.push_back(std::move(task));
    }
    // The list is not empty.
    Task pop() {
        Task task = std::move(tasks_[first_++]);
        if (isEmpty())
            compact();
        return task;
    }

private:
    static constexpr std::size_t kCompactAt = 64;    // spent places that are worth a move
    static constexpr std::size_t kKeptPlaces = 1024; // memory that an empty list keeps

    void compact() {
        tasks_.erase(tasks_.begin(), tasks_.begin() + static_cast<std::ptrdiff_t>(first_));
        first_ = 0;
        if (tasks_.empty() && tasks_.capacity() > kKeptPlaces)
            std::vector<Task>().swap(tasks_);
    }

    std::vector<Task> tasks_;
    std::size_t first_ = 0;
};

} // namespace port
