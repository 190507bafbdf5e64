#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "Platform/queues/DispatchQueue.h"

namespace vesko {

/// The main queue: a serial queue without a thread of its own, drained by the host. A host that never drains it loses
/// what is delivered there and nothing else.
class MainQueue : public DispatchQueue {
 public:
  [[nodiscard]] static const std::shared_ptr<MainQueue>& shared();

  /// Runs tasks on the calling thread, waiting for more, until `stop` is called.
  virtual void run() = 0;

  /// Makes `run` return after the task under way, now or when it is next called.
  virtual void stop() = 0;

  /// Runs the tasks that are waiting, on the calling thread, and returns how many ran.
  virtual std::size_t drain() = 0;

  /// `wake` is called, on any thread, whenever the queue stops being empty: a foreign event loop then arranges for a
  /// call of `drain` on its own thread. An empty function removes the hook.
  virtual void setWakeHook(std::function<void()> wake) = 0;

 protected:
  using DispatchQueue::DispatchQueue;
};

}  // namespace vesko
