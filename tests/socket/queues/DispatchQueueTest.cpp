#include "Platform/queues/DispatchQueue.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "Platform/queues/MainQueue.h"
#include "tests/support/QueueTasks.h"

namespace vesko {
namespace {

TEST(MainQueueTest, TheHostDrainsItOrRunsItUntilStopped) {
  const auto& queue = MainQueue::shared();
  (void)queue->drain();  // what others left
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

  const auto giveTask = [&](void* /*nothing*/) { queue->async([&] { order += "5"; }); };
  queue->setWakeHook([held = std::shared_ptr<void>(nullptr, giveTask)] {});
  queue->setWakeHook({});
  EXPECT_EQ(queue->drain(), 1U) << "what a hook held may use the queue when it goes";
}

TEST(SerialQueueTest, WithAThreadOfItsOwnItRunsAllItWasGiven) {
  std::string order;
  std::promise<void> end;
  auto queue = DispatchQueue::serialWithThread("own");
  EXPECT_FALSE(queue->isCurrent());
  {
    const HeldQueue held(queue);
    queue->async([&, queue] {
      order += queue->isCurrent() ? "1" : "?";
      queue->async([&] { order += "3"; });
      queue->async([&] { end.set_value(); });
    });
    queue->async([&] { order += "2"; });
    queue.reset();  // the tasks are its last owners
  }
  end.get_future().wait();
  EXPECT_EQ(order, "123");
}

}  // namespace
}  // namespace vesko
