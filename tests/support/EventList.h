#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vesko {

/// What happened, one text an event, in the order in which it did. Any thread.
class EventList {
 public:
  void add(std::string event) {
    {
      const std::scoped_lock lock(mutex_);
      events_.push_back(std::move(event));
    }
    added_.notify_all();
  }

  [[nodiscard]] std::vector<std::string> all() const { return startingWith(""); }

  [[nodiscard]] std::vector<std::string> startingWith(std::string_view prefix) const {
    const std::scoped_lock lock(mutex_);
    std::vector<std::string> result;
    std::ranges::copy_if(events_, std::back_inserter(result),
                         [&](const std::string& event) { return event.starts_with(prefix); });
    return result;
  }

  [[nodiscard]] std::size_t count(std::string_view prefix) const { return startingWith(prefix).size(); }

  /// Returns all events and begins anew.
  std::vector<std::string> take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(events_, {});
  }

  /// True as soon as `count` events start with `prefix`; false when they do not within `patience`.
  [[nodiscard]] bool waitFor(std::string_view prefix, std::size_t count = 1,
                             std::chrono::seconds patience = std::chrono::seconds(10)) const {
    std::unique_lock lock(mutex_);
    return added_.wait_for(lock, patience, [&] {
      const auto starts = [&](const std::string& event) { return event.starts_with(prefix); };
      return static_cast<std::size_t>(std::ranges::count_if(events_, starts)) >= count;
    });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable added_;
  std::vector<std::string> events_;
};

}  // namespace vesko
