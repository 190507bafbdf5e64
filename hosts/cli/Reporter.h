#pragma once

#include "hosts/common/Events.h"

namespace vesko {

/// Tells the user what happens. Used on one thread.
class Reporter {
 public:
  virtual ~Reporter() = default;
  virtual void report(const Event& event) = 0;
};

}  // namespace vesko
