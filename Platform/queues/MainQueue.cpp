#include "Platform/queues/MainQueue.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "Platform/queues/QueueFoundation.h"

namespace vesko {

namespace {

class HostDrainedQueue final : public MainQueue {
 public:
  HostDrainedQueue() : MainQueue("main", Clock::system()) {}

  void async(Task task) override {
    std::function<void()> wake;
    {
      const std::scoped_lock lock(mutex_);
      if (tasks_.empty()) wake = wake_;
      tasks_.push_back(std::move(task));
    }
    arrived_.notify_one();
    if (wake) wake();
  }

  bool isCurrent() const noexcept override { return drainingHere_; }

  std::unique_ptr<DispatchSource> makeSource(int descriptor, std::error_code& error) override {
    return poolSource(shared_from_this(), descriptor, error);
  }

  void run() override {
    for (;;) {
      {
        std::unique_lock lock(mutex_);
        arrived_.wait(lock, [this] { return stopped_ || !tasks_.empty(); });
        if (std::exchange(stopped_, false)) return;
      }
      runFirst();
    }
  }

  void stop() override {
    {
      const std::scoped_lock lock(mutex_);
      stopped_ = true;
    }
    arrived_.notify_one();
  }

  std::size_t drain() override {
    std::size_t waiting = 0;
    {
      const std::scoped_lock lock(mutex_);
      waiting = tasks_.size();
    }
    std::size_t count = 0;
    while (count < waiting && runFirst()) ++count;
    wakeForTheRest();
    return count;
  }

  void setWakeHook(std::function<void()> wake) override {
    {
      const std::scoped_lock lock(mutex_);
      wake_.swap(wake);  // what the other one holds goes after the lock, and may come back to this queue
    }
    wakeForTheRest();
  }

 private:
  bool runFirst() {
    Task task;
    {
      const std::scoped_lock lock(mutex_);
      if (tasks_.empty()) return false;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    blockWriteSignals();
    const bool outer = std::exchange(drainingHere_, true);
    task();
    drainingHere_ = outer;
    return true;
  }

  /// For tasks that were added during a drain, or before the hook was set: the hook was not called for them.
  void wakeForTheRest() {
    std::function<void()> wake;
    {
      const std::scoped_lock lock(mutex_);
      if (!tasks_.empty()) wake = wake_;
    }
    if (wake) wake();
  }

  static thread_local bool drainingHere_;

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<Task> tasks_;
  std::function<void()> wake_;
  bool stopped_ = false;
};

thread_local bool HostDrainedQueue::drainingHere_ = false;

}  // namespace

const std::shared_ptr<MainQueue>& MainQueue::shared() {
  static const auto* queue = new std::shared_ptr<MainQueue>(std::make_shared<HostDrainedQueue>());
  return *queue;
}

}  // namespace vesko
