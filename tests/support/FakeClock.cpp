#include "tests/support/FakeClock.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace vesko {

struct FakeClock::State {
  struct Call {
    std::chrono::steady_clock::time_point due;
    std::function<void()> wake;
  };

  std::mutex mutex;
  std::condition_variable asked;
  WallTime wallTime;
  std::chrono::steady_clock::time_point time;
  std::map<int, Call> calls;
  int lastCall = 0;
};

class FakeClock::FakeAlarm final : public Alarm {
 public:
  FakeAlarm(std::shared_ptr<State> state, int call) : state_(std::move(state)), call_(call) {}
  ~FakeAlarm() override {
    const std::scoped_lock lock(state_->mutex);
    state_->calls.erase(call_);
  }

 private:
  std::shared_ptr<State> state_;
  int call_;
};

FakeClock::FakeClock(WallTime now) : state_(std::make_shared<State>()) { state_->wallTime = now; }

FakeClock::WallTime FakeClock::now() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->wallTime;
}

std::chrono::steady_clock::time_point FakeClock::monotonicNow() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->time;
}

std::unique_ptr<Alarm> FakeClock::callAfter(std::chrono::steady_clock::duration delay, std::function<void()> wake) {
  const std::scoped_lock lock(state_->mutex);
  state_->calls[++state_->lastCall] = {state_->time + delay, std::move(wake)};
  state_->asked.notify_all();
  return std::make_unique<FakeAlarm>(state_, state_->lastCall);
}

void FakeClock::setNow(WallTime now) {
  const std::scoped_lock lock(state_->mutex);
  state_->wallTime = now;
}

void FakeClock::advance(std::chrono::steady_clock::duration time) {
  std::vector<std::function<void()>> due;
  {
    const std::scoped_lock lock(state_->mutex);
    state_->wallTime += std::chrono::duration_cast<WallTime::duration>(time);
    state_->time += time;
    std::erase_if(state_->calls, [&](auto& entry) {
      if (entry.second.due > state_->time) return false;
      due.push_back(std::move(entry.second.wake));
      return true;
    });
  }
  for (const auto& wake : due) wake();
}

bool FakeClock::waitForAlarm() const {
  std::unique_lock lock(state_->mutex);
  return state_->asked.wait_for(lock, std::chrono::seconds(10), [this] { return !state_->calls.empty(); });
}

}  // namespace vesko
