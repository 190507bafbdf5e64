#pragma once

#include <future>
#include <memory>

#include "Platform/queues/DispatchQueue.h"

namespace vesko {

/// Returns when a serial queue has run what it was given so far, and what those tasks gave it in turn.
inline void waitForTasks(const std::shared_ptr<DispatchQueue>& queue) {
  for (int round = 0; round < 2; ++round) {
    const auto done = std::make_shared<std::promise<void>>();
    queue->async([done] { done->set_value(); });
    done->get_future().wait();
  }
}

/// Keeps a serial queue from running anything else for as long as it lives.
class HeldQueue {
 public:
  explicit HeldQueue(const std::shared_ptr<DispatchQueue>& queue) {
    const auto held = std::make_shared<std::promise<void>>();
    queue->async([held, released = released_.get_future().share()] {
      held->set_value();
      released.wait();
    });
    held->get_future().wait();
  }

  ~HeldQueue() { released_.set_value(); }
  HeldQueue(const HeldQueue&) = delete;
  HeldQueue& operator=(const HeldQueue&) = delete;

 private:
  std::promise<void> released_;
};

}  // namespace vesko
