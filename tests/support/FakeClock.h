#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Platform/queues/Clock.h"

namespace vesko {

/// A clock that stands still until a test moves it. Any thread.
class FakeClock final : public Clock {
 public:
  using WallTime = std::chrono::system_clock::time_point;
  using SteadyTime = std::chrono::steady_clock::time_point;

  [[nodiscard]] WallTime now() const override {
    const std::scoped_lock lock(mutex_);
    return wallTime_;
  }

  [[nodiscard]] SteadyTime monotonicNow() const override {
    const std::scoped_lock lock(mutex_);
    return time_;
  }

  [[nodiscard]] std::unique_ptr<Alarm> callAfter(SteadyTime::duration delay, std::function<void()> wake) override {
    const std::scoped_lock lock(mutex_);
    auto call = std::make_shared<Call>(time_ + delay, std::move(wake));
    calls_.push_back(call);
    asked_.notify_all();
    return std::make_unique<FakeAlarm>(std::move(call));
  }

  /// Sets the time of day, and nothing else.
  void setNow(WallTime now) {
    const std::scoped_lock lock(mutex_);
    wallTime_ = now;
  }

  /// Lets time pass and makes the calls that are due by then, on the calling thread.
  void advance(SteadyTime::duration time) {
    std::vector<std::shared_ptr<Call>> due;
    {
      const std::scoped_lock lock(mutex_);
      wallTime_ += std::chrono::duration_cast<WallTime::duration>(time);
      time_ += time;
      std::erase_if(calls_, [&](const std::weak_ptr<Call>& waiting) {
        const auto call = waiting.lock();
        if (call && call->due > time_) return false;
        if (call) due.push_back(call);
        return true;
      });
    }
    for (const auto& call : due) call->wake();
  }

  /// True as soon as a call is asked for; false when none is within ten seconds.
  [[nodiscard]] bool waitForAlarm() const {
    std::unique_lock lock(mutex_);
    return asked_.wait_for(lock, std::chrono::seconds(10),
                           [this] { return !std::ranges::all_of(calls_, &std::weak_ptr<Call>::expired); });
  }

 private:
  struct Call {
    Call(SteadyTime when, std::function<void()> what) : due(when), wake(std::move(what)) {}
    SteadyTime due;
    std::function<void()> wake;
  };

  /// Keeps its call; without it the call is not made.
  class FakeAlarm final : public Alarm {
   public:
    explicit FakeAlarm(std::shared_ptr<Call> call) : call_(std::move(call)) {}

   private:
    std::shared_ptr<Call> call_;
  };

  mutable std::mutex mutex_;
  mutable std::condition_variable asked_;
  WallTime wallTime_;
  SteadyTime time_;
  std::vector<std::weak_ptr<Call>> calls_;
};

}  // namespace vesko
