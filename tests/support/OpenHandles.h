#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "Platform/DispatchQueue.h"
#include "tests/support/QueueTasks.h"

namespace vesko {

/// Sees at its end that the process has no more descriptors and threads than at its beginning. As the first base of a
/// fixture it watches over all that the others make.
class OpenHandles {
 public:
  /// As many as there are of each at this moment.
  struct Numbers {
    std::ptrdiff_t descriptors = numberOf("fd");
    std::ptrdiff_t threads = numberOf("task");
    friend bool operator==(const Numbers&, const Numbers&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const Numbers& numbers) {
      return stream << numbers.descriptors << " descriptors, " << numbers.threads << " threads";
    }
  };

  OpenHandles(const OpenHandles&) = delete;
  OpenHandles& operator=(const OpenHandles&) = delete;

 protected:
  OpenHandles() {
    // What all queues share is made with the first of them and stays.
    waitForTasks(DispatchQueue::serial("first"));
    before_ = Numbers();
  }

  ~OpenHandles() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Numbers() != before_ && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_EQ(Numbers(), before_);
  }

 private:
  static std::ptrdiff_t numberOf(const std::string& kind) {
    return std::distance(std::filesystem::directory_iterator("/proc/self/" + kind), {});
  }

  Numbers before_;
};

}  // namespace vesko
