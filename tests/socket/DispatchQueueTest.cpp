#include "Platform/DispatchQueue.h"

#include <gtest/gtest.h>

#include <future>
#include <numeric>
#include <thread>
#include <vector>

#include "tests/support/QueueTasks.h"

namespace vesko {
namespace {

TEST(DispatchQueueTest, ASerialQueueRunsOneTaskAfterTheOther) {
  const auto queue = DispatchQueue::serial("serial");
  std::vector<int> order;
  int sum = 0;  // without a lock, from two threads' tasks
  constexpr int count = 2000;
  std::jthread other([&] {
    for (int i = 0; i < count; ++i) queue->async([&] { ++sum; });
  });
  for (int i = 0; i < count; ++i) {
    queue->async([&, i] {
      order.push_back(i);
      if (queue->isCurrent()) ++sum;
    });
  }
  other.join();
  waitForTasks(queue);
  std::vector<int> expected(count);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(order, expected);
  EXPECT_EQ(sum, 2 * count);
}

TEST(DispatchQueueTest, TheGlobalQueueRunsTasksSideBySide) {
  const auto met = std::make_shared<std::promise<void>>();
  const auto left = std::make_shared<std::promise<void>>();
  DispatchQueue::global()->async([=] {
    if (met->get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready) left->set_value();
  });
  DispatchQueue::global()->async([=] { met->set_value(); });
  EXPECT_EQ(left->get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST(MainQueueTest, TheHostDrainsItOrRunsItUntilStopped) {
  const auto& queue = MainQueue::shared();
  int wakes = 0;
  std::string order;
  queue->setWakeHook([&] { ++wakes; });
  queue->async([&] {
    order += queue->isCurrent() ? "1" : "?";
    queue->async([&] { order += "3"; });
  });
  queue->async([&] { order += "2"; });
  EXPECT_EQ(wakes, 1) << "the queue was not empty";
  EXPECT_FALSE(queue->isCurrent());
  EXPECT_EQ(queue->drain(), 2U) << "what comes during a drain waits for the next";
  EXPECT_GE(wakes, 2) << "and is told of";
  queue->setWakeHook({});

  std::jthread other([&] {
    queue->async([&] {
      queue->async([&] { order += "4"; });
      queue->stop();
    });
  });
  queue->run();
  EXPECT_EQ(order, "123");
  other.join();
  EXPECT_EQ(queue->drain(), 1U);
  EXPECT_EQ(order, "1234");
  queue->stop();
  queue->run();  // a stop before the run counts
}

}  // namespace
}  // namespace vesko
