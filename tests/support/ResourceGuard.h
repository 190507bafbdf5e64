#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <system_error>

#include "Platform/queues/DispatchQueue.h"
#include "tests/support/IsSoon.h"
#include "tests/support/QueueTasks.h"

namespace vesko {

/// Fails a test that ends with other numbers of open descriptors and threads than it began with. As a fixture's first
/// base it begins before everything else, and ends after it.
class ResourceGuard {
 public:
  ResourceGuard(const ResourceGuard&) = delete;
  ResourceGuard& operator=(const ResourceGuard&) = delete;

 protected:
  ResourceGuard() {
    waitForTasks(DispatchQueue::serial("first"));  // the queues' threads are there for good
    descriptors_ = descriptors();
    threads_ = threads();
  }

  ~ResourceGuard() {
    // Who has let go of a connection does not wait for its end, and a thread that was joined is listed a little longer.
    if (isSoon([this] { return descriptors() == descriptors_ && threads() == threads_; })) return;
    EXPECT_EQ(descriptors(), descriptors_);
    EXPECT_EQ(threads(), threads_);
  }

 private:
  static std::size_t entriesOf(const char* folder) {
    std::error_code error;
    std::size_t count = 0;
    // A thread that ends meanwhile ends the reading of a list of threads, too.
    for (std::filesystem::directory_iterator entry(folder, error); !error && entry != end(entry);
         entry.increment(error)) {
      ++count;
    }
    return count;
  }
  static std::size_t descriptors() { return entriesOf("/proc/self/fd"); }
  static std::size_t threads() { return entriesOf("/proc/self/task"); }

  std::size_t descriptors_ = 0;
  std::size_t threads_ = 0;
};

}  // namespace vesko
