#include "hosts/common/events/EventHub.h"

#include <utility>

namespace vesko {

// A subscriber may lose its last other owner while it is called. Its destructor may use the hub, so the reference taken
// here is released only after the lock: `reached` is declared before `lock`.

void EventHub::publish(Event event) {
  Subscribers reached;
  const std::scoped_lock lock(mutex_);
  if (isHolding_) {
    held_.push_back(std::move(event));
  } else {
    handOn(std::move(event), reached);
  }
}

void EventHub::hold() {
  const std::scoped_lock lock(mutex_);
  isHolding_ = true;
}

void EventHub::release(std::vector<Event> first) {
  Subscribers reached;
  const std::scoped_lock lock(mutex_);
  isHolding_ = false;
  for (auto& event : first) handOn(std::move(event), reached);
  for (auto& event : std::exchange(held_, {})) handOn(std::move(event), reached);
}

void EventHub::handOn(Event event, Subscribers& reached) {
  if (isClosed_) return;
  state_.apply(event);
  std::erase_if(subscribers_, [&](const std::weak_ptr<EventSink>& weak) {
    auto subscriber = weak.lock();
    if (!subscriber) return true;
    subscriber->publish(event);
    reached.push_back(std::move(subscriber));
    return false;
  });
  sink_->publish(std::move(event));
}

}  // namespace vesko
