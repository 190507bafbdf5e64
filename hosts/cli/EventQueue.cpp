#include "hosts/cli/EventQueue.h"

#include <algorithm>
#include <utility>

namespace vesko {

void EventQueue::publish(Event event) {
  {
    const std::scoped_lock lock(mutex_);
    if (!replacedProgress(event)) events_.push_back(std::move(event));
  }
  changed_.notify_one();
}

void EventQueue::interrupt() {
  {
    const std::scoped_lock lock(mutex_);
    isInterrupted_ = true;
  }
  changed_.notify_one();
}

std::optional<Event> EventQueue::next() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !events_.empty() || (isInterrupted_ && !isInterruptionTold_); });
  if (isInterrupted_ && !std::exchange(isInterruptionTold_, true)) return std::nullopt;
  return takeFirst();
}

std::optional<Event> EventQueue::nextWaiting() {
  const std::scoped_lock lock(mutex_);
  return takeFirst();
}

std::optional<Event> EventQueue::takeFirst() {
  if (events_.empty()) return std::nullopt;
  std::optional<Event> event = std::move(events_.front());
  events_.pop_front();
  return event;
}

bool EventQueue::replacedProgress(Event& event) {
  if (!std::holds_alternative<ProgressEvent>(event)) return false;
  const auto last =
      std::find_if(events_.rbegin(), events_.rend(),
                   [transfer = transferOf(event)](const Event& waiting) { return transferOf(waiting) == transfer; });
  if (last == events_.rend() || !std::holds_alternative<ProgressEvent>(*last)) return false;
  *last = std::move(event);
  return true;
}

}  // namespace vesko
