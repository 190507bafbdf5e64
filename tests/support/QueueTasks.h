#pragma once

#include <future>
#include <memory>

#include "Platform/DispatchQueue.h"

namespace vesko {

/// Returns when a serial queue has run what it was given so far, and what those tasks gave it in turn.
inline void waitForTasks(const std::shared_ptr<DispatchQueue>& queue) {
  for (int round = 0; round < 2; ++round) {
    const auto done = std::make_shared<std::promise<void>>();
    queue->async([done] { done->set_value(); });
    done->get_future().wait();
  }
}

}  // namespace vesko
