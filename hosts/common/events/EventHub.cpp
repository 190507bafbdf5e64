#include "hosts/common/events/EventHub.h"

#include <utility>

namespace vesko {

void EventHub::publish(Event event) {
  const std::scoped_lock lock(mutex_);
  if (isHolding_) {
    held_.push_back(std::move(event));
  } else {
    handOn(std::move(event));
  }
}

void EventHub::hold() {
  const std::scoped_lock lock(mutex_);
  isHolding_ = true;
}

void EventHub::release(std::vector<Event> first) {
  const std::scoped_lock lock(mutex_);
  isHolding_ = false;
  for (auto& event : first) handOn(std::move(event));
  for (auto& event : std::exchange(held_, {})) handOn(std::move(event));
}

void EventHub::handOn(Event event) {
  if (isClosed_) return;
  state_.apply(event);
  std::erase_if(subscribers_, [&](const std::weak_ptr<EventSink>& weak) {
    const auto subscriber = weak.lock();
    if (subscriber) subscriber->publish(event);
    return !subscriber;
  });
  sink_->publish(std::move(event));
}

}  // namespace vesko
