#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace vesko {

/// A request to a `Clock` to call something later; destroying it withdraws the request. The call may be running on
/// another thread at that moment, so the function must be prepared to be called too late.
class Alarm {
 public:
  virtual ~Alarm() = default;
};

/// Tells the time and calls back after a delay. Each queue has a clock, and what runs on the queue asks that one: a
/// test can pass a clock of its own and let ten seconds pass without waiting. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;

  /// The time of day. It may be set by the user, and so jump forward and back.
  [[nodiscard]] virtual std::chrono::system_clock::time_point now() const = 0;

  /// A time that never goes back, for measuring durations.
  [[nodiscard]] virtual std::chrono::steady_clock::time_point monotonicNow() const = 0;

  /// Calls `wake` once after `delay`, on a thread of the clock's choice, unless the returned alarm is destroyed before.
  /// `wake` must not block: hand the work to a queue.
  [[nodiscard]] virtual std::unique_ptr<Alarm> callAfter(std::chrono::steady_clock::duration delay,
                                                         std::function<void()> wake) = 0;

  /// The machine's clock. Its alarms call on the threads that the queues share.
  [[nodiscard]] static std::shared_ptr<Clock> system();
};

}  // namespace vesko
