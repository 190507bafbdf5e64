#pragma once

#include <chrono>
#include <optional>

#include "hosts/common/events/Events.h"

namespace vesko {

/// Shows events to the user. Used on one thread.
class Reporter {
 public:
  virtual ~Reporter() = default;
  /// Shows one event.
  virtual void report(const Event& event) = 0;

  /// False when `report` ignores such an event: the main thread is then not woken for it. Any thread.
  [[nodiscard]] virtual bool wants(const Event& /*event*/) const { return true; }

  /// When `refresh` should be called if no event comes first; none: not at all.
  [[nodiscard]] virtual std::optional<std::chrono::steady_clock::time_point> refreshAt() const { return std::nullopt; }

  /// Updates what depends on the time, such as "nothing has moved for 5 s".
  virtual void refresh() {}
};

}  // namespace vesko
