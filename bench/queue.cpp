#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <semaphore>
#include <utility>

#include "Platform/queues/DispatchQueue.h"

namespace vesko {
namespace {

constexpr std::int64_t batch = 1000;

/// From a thread of no queue to a queue's task and back, which wakes both.
void queueThereAndBack(benchmark::State& state) {
  const auto queue = DispatchQueue::serial("there");
  std::binary_semaphore isBack(0);
  for (auto _ : state) {
    queue->async([&isBack] { isBack.release(); });
    isBack.acquire();
  }
}
BENCHMARK(queueThereAndBack)->UseRealTime();

/// A task that gives itself to the other queue until all hops are made.
struct Ping {
  std::shared_ptr<DispatchQueue> here;
  std::shared_ptr<DispatchQueue> there;
  std::int64_t hopsLeft = 0;
  std::binary_semaphore isDone{0};

  void hop() {
    if (hopsLeft-- == 0) return isDone.release();
    std::swap(here, there);
    here->async([this] { hop(); });
  }
};

/// Hops from one serial queue to another one; an item is one hop.
void queueToQueue(benchmark::State& state) {
  Ping ping{.here = DispatchQueue::serial("one"), .there = DispatchQueue::serial("other")};
  for (auto _ : state) {
    ping.hopsLeft = batch;
    ping.hop();
    ping.isDone.acquire();
  }
  state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(queueToQueue)->UseRealTime();

/// Tasks given to a serial queue without waiting for any but the last; an item is one task.
void queueManyTasks(benchmark::State& state) {
  const auto queue = DispatchQueue::serial("busy");
  std::int64_t count = 0;
  std::binary_semaphore isDone(0);
  for (auto _ : state) {
    for (std::int64_t task = 0; task < batch; ++task) queue->async([&count] { ++count; });
    queue->async([&isDone] { isDone.release(); });
    isDone.acquire();
  }
  if (count != state.iterations() * batch) state.SkipWithError("tasks are missing");
  state.SetItemsProcessed(count);
}
BENCHMARK(queueManyTasks)->UseRealTime();

}  // namespace
}  // namespace vesko
