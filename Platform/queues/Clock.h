#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace vesko {

/// A call that a `Clock` has been asked to make; destroying it withdraws the request. The call may be under way at that
/// moment, so what it does must bear being too late.
class Alarm {
 public:
  virtual ~Alarm() = default;
};

/// Where time comes from. Every queue has one, and whoever works on the queue asks that one, so that a test can let ten
/// seconds pass without waiting for them. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;

  /// The time of day, as people read it; it can be set and so jump.
  [[nodiscard]] virtual std::chrono::system_clock::time_point now() const = 0;

  /// A time that only moves forward, for measuring how long something took.
  [[nodiscard]] virtual std::chrono::steady_clock::time_point monotonicNow() const = 0;

  /// Calls `wake` once, after `delay`, on a thread of the clock's choice; `wake` must not block.
  [[nodiscard]] virtual std::unique_ptr<Alarm> callAfter(std::chrono::steady_clock::duration delay,
                                                         std::function<void()> wake) = 0;

  /// The machine's clock.
  [[nodiscard]] static std::shared_ptr<Clock> system();
};

}  // namespace vesko
