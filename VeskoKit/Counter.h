#pragma once

#include <atomic>

namespace vesko {

/// A number that one queue changes and that any thread may read. A reader gets the value of some recent moment; two
/// counters read one after the other need not fit together.
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

  /// Not atomic as a whole: only the one queue that counts may call it.
  Counter& operator+=(Number amount) noexcept { return *this = static_cast<Number>(*this) + amount; }

 private:
  std::atomic<Number> value_;
};

}  // namespace vesko
