#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "Platform/Clock.h"

namespace vesko {

/// A clock that stands still until a test moves it. Any thread.
class FakeClock final : public Clock {
 public:
  using WallTime = std::chrono::system_clock::time_point;

  explicit FakeClock(WallTime now = {});

  [[nodiscard]] WallTime now() const override;
  [[nodiscard]] std::chrono::steady_clock::time_point monotonicNow() const override;
  [[nodiscard]] std::unique_ptr<Alarm> callAfter(std::chrono::steady_clock::duration delay,
                                                 std::function<void()> wake) override;

  /// Sets the time of day, and nothing else.
  void setNow(WallTime now);

  /// Lets time pass and makes the calls that are due by then, on the calling thread.
  void advance(std::chrono::steady_clock::duration time);

  /// True as soon as a call is asked for; false when none is within ten seconds.
  [[nodiscard]] bool waitForAlarm() const;

 private:
  struct State;
  class FakeAlarm;
  std::shared_ptr<State> state_;
};

}  // namespace vesko
