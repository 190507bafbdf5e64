#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "Platform/queues/DispatchQueue.h"

namespace vesko {

/// The main queue: a serial queue without a thread, whose tasks the host runs on a thread of its choice. The library
/// uses it only to tell that avatars have arrived. A host that never runs it misses these calls and nothing else.
///
/// A program without an event loop calls `run` on its main thread. A program with an event loop of its own sets a hook
/// that makes the loop call `drain`:
///
///     MainQueue::shared()->setWakeHook([&loop] { loop.post([] { MainQueue::shared()->drain(); }); });
///
/// Run or drain it on one thread only.
class MainQueue : public DispatchQueue {
 public:
  /// The only main queue of the process. Any thread.
  [[nodiscard]] static const std::shared_ptr<MainQueue>& shared();

  /// Runs tasks on the calling thread and waits for more, until `stop` is called.
  virtual void run() = 0;

  /// Makes `run` return after the current task. When nobody is in `run`, the next call of it returns at once. Any
  /// thread.
  virtual void stop() = 0;

  /// Runs the tasks that are waiting now, on the calling thread, without waiting for others. Returns how many ran.
  virtual std::size_t drain() = 0;

  /// Sets a function that is called whenever tasks wait in the queue that was empty before, or are left after a
  /// `drain`. It is called on any thread and should only arrange for a `drain`. An empty function removes the hook. Any
  /// thread.
  virtual void setWakeHook(std::function<void()> wake) = 0;

 protected:
  using DispatchQueue::DispatchQueue;
};

}  // namespace vesko
