#include "Platform/DispatchQueue.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

namespace vesko {
namespace {

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

TEST(SerialQueueTest, WithAThreadOfItsOwnItRunsAllItWasGiven) {
  std::string order;
  std::promise<void> start;
  std::promise<void> end;
  auto queue = DispatchQueue::serialWithThread("own");
  EXPECT_FALSE(queue->isCurrent());
  queue->async([&, started = start.get_future().share()] {
    started.wait();
    order += "1";
  });
  queue->async([&, queue] {
    order += queue->isCurrent() ? "2" : "?";
    queue->async([&] { order += "4"; });
    queue->async([&] { end.set_value(); });
  });
  queue->async([&] { order += "3"; });
  queue.reset();  // the tasks are its last owners
  start.set_value();
  end.get_future().wait();
  EXPECT_EQ(order, "1234");
}

}  // namespace
}  // namespace vesko
