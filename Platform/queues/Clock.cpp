#include "Platform/queues/Clock.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <utility>

#include "Platform/queues/QueueFoundation.h"

namespace asio = boost::asio;

namespace vesko {

namespace {

class PoolAlarm final : public Alarm {
 public:
  PoolAlarm(std::chrono::steady_clock::duration delay, std::function<void()> wake) : timer_(*poolContext(), delay) {
    timer_.async_wait([wake = std::move(wake)](const boost::system::error_code& error) {
      if (!error) wake();
    });
  }

 private:
  asio::steady_timer timer_;
};

class SystemClock final : public Clock {
 public:
  std::chrono::system_clock::time_point now() const override { return std::chrono::system_clock::now(); }
  std::chrono::steady_clock::time_point monotonicNow() const override { return std::chrono::steady_clock::now(); }
  std::unique_ptr<Alarm> callAfter(std::chrono::steady_clock::duration delay, std::function<void()> wake) override {
    return std::make_unique<PoolAlarm>(delay, std::move(wake));
  }
};

}  // namespace

std::shared_ptr<Clock> Clock::system() {
  static const auto* clock = new std::shared_ptr<Clock>(std::make_shared<SystemClock>());
  return *clock;
}

}  // namespace vesko
