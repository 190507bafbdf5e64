#pragma once

#include "hosts/common/Events.h"

namespace vesko {

/// Tells the user what happens. Used on one thread.
class Reporter {
 public:
  virtual ~Reporter() = default;
  virtual void report(const Event& event) = 0;

  /// False when `report` does nothing about such an event, which nobody needs to be woken for then. Any thread.
  [[nodiscard]] virtual bool wants(const Event& /*event*/) const { return true; }
};

}  // namespace vesko
