#pragma once

#include <chrono>
#include <thread>

namespace vesko {

/// For what nothing tells of: true as soon as `condition` holds, false when it does not within ten seconds.
template <class Condition>
[[nodiscard]] bool isSoon(Condition condition) {
  const auto bound = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > bound) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace vesko
