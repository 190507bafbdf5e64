#pragma once

#include <chrono>
#include <optional>

#include "hosts/common/events/Events.h"

namespace vesko {

/// Tells the user what happens. Used on one thread.
class Reporter {
 public:
  virtual ~Reporter() = default;
  virtual void report(const Event& event) = 0;

  /// False when `report` does nothing about such an event, which nobody needs to be woken for then. Any thread.
  [[nodiscard]] virtual bool wants(const Event& /*event*/) const { return true; }

  /// When `refresh` is to be called if there is no event before; none: nothing changes by itself.
  [[nodiscard]] virtual std::optional<std::chrono::steady_clock::time_point> refreshAt() const { return std::nullopt; }

  /// Tells what has changed by the mere passing of time.
  virtual void refresh() {}
};

}  // namespace vesko
