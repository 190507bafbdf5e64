#include "hosts/common/events/EventHub.h"

#include <gtest/gtest.h>

#include <functional>

namespace vesko {
namespace {

class Sink final : public EventSink {
 public:
  explicit Sink(
      std::function<void()> onEvent = [] {}, std::function<void()> onEnd = [] {})
      : onEvent_(std::move(onEvent)), onEnd_(std::move(onEnd)) {}
  ~Sink() override { onEnd_(); }
  void publish(Event /*event*/) override { onEvent_(); }

 private:
  const std::function<void()> onEvent_;
  const std::function<void()> onEnd_;
};

TEST(EventHub, ASubscriberThatEndsWhileItIsToldMayUseTheHub) {
  EventHub hub(std::make_shared<Sink>());
  std::size_t known = 0;
  std::shared_ptr<EventSink> owner;
  owner = std::make_shared<Sink>([&owner] { owner.reset(); }, [&] { known = hub.state().peers().size(); });
  hub.subscribe(owner, [](const SessionState&) {});
  hub.publish(PeerAppearedEvent{{"a", "192.0.2.7", 4644, "Signature", "", {}}});
  EXPECT_EQ(owner, nullptr);
  EXPECT_EQ(known, 1U);
}

}  // namespace
}  // namespace vesko
