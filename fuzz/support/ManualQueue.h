#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/queues/DispatchSource.h"
#include "fuzz/support/Check.h"

namespace vesko::fuzz {

/// A serial queue whose tasks run when the fuzzer says so, on its thread: the same in every run of an input.
class ManualQueue final : public DispatchQueue {
 public:
  ManualQueue() : DispatchQueue("manual", Clock::system()) {}

  void async(Task task) override {
    {
      const std::scoped_lock lock(mutex_);
      tasks_.push_back(std::move(task));
    }
    arrived_.notify_one();
  }

  /// Runs what waits, and what that brings about.
  void drain() {
    while (const auto task = takeFirst()) task();
  }

  /// Runs one task, which another thread may still have to give.
  void runOne() {
    {
      std::unique_lock lock(mutex_);
      arrived_.wait(lock, [this] { return !tasks_.empty(); });
    }
    takeFirst()();
  }

  [[nodiscard]] bool isCurrent() const noexcept override { return true; }

  [[nodiscard]] std::unique_ptr<DispatchSource> makeSource(int /*descriptor*/, std::error_code& /*error*/) override {
    broken("nothing on this queue has a descriptor");
  }

 private:
  [[nodiscard]] Task takeFirst() {
    const std::scoped_lock lock(mutex_);
    if (tasks_.empty()) return {};
    auto task = std::move(tasks_.front());
    tasks_.pop_front();
    return task;
  }

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Task> tasks_;
};

}  // namespace vesko::fuzz
