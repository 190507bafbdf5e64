#pragma once

#include <atomic>

namespace vesko {

/// A number that one queue counts and any thread may look at: a reader gets the value of some recent moment.
template <class Number>
class Counter {
 public:
  Counter(Number value = 0) noexcept : value_(value) {}
  Counter(const Counter&) = delete;

  Counter& operator=(const Counter& other) noexcept { return *this = static_cast<Number>(other); }
  Counter& operator=(Number value) noexcept {
    value_.store(value, std::memory_order_relaxed);
    return *this;
  }
  operator Number() const noexcept { return value_.load(std::memory_order_relaxed); }

  /// Not one step: only the counting queue adds.
  Counter& operator+=(Number amount) noexcept { return *this = static_cast<Number>(*this) + amount; }

 private:
  std::atomic<Number> value_;
};

}  // namespace vesko
