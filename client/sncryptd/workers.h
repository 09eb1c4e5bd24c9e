// The threads that answer clients.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

// Does tasks on threads of which there come to be as many as there were tasks at a time. None ends:
// where a detached thread ends, mingw-w64's library may give its record to two new ones, and then
// one of these never runs.
template <typename Task>
class Workers {
  public:
    // `work` does a task and does not throw. The task is destroyed when it is done.
    explicit Workers(void (*work)(const Task& task)) : work_(work) {}

    // Has an idle thread, or a new one, do a task. Throws when there is no thread or no memory for
    // it.
    void Take(Task task) {
        const std::lock_guard lock(mutex_);
        if (idle_ == tasks_.size()) {
            std::thread([this] { Work(); }).detach();
            ++idle_;
        }
        tasks_.push_back(std::move(task));
        posted_.notify_one();
    }

  private:
    [[noreturn]] void Work() {
        for (;;) {
            work_(Next());
            const std::lock_guard lock(mutex_);
            ++idle_;
        }
    }

    Task Next() {
        std::unique_lock lock(mutex_);
        posted_.wait(lock, [this] { return !tasks_.empty(); });
        Task task = std::move(tasks_.front());
        tasks_.pop_front();
        --idle_;
        return task;
    }

    void (*work_)(const Task& task);
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<Task> tasks_;
    std::size_t idle_ = 0;  // threads that wait for a task, or for the one that was posted for them
};
