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

void EventQueue::finish() {
  {
    const std::scoped_lock lock(mutex_);
    isFinished_ = true;
  }
  changed_.notify_one();
}

std::optional<Event> EventQueue::next(std::optional<std::chrono::steady_clock::time_point> deadline) {
  std::unique_lock lock(mutex_);
  const auto isWoken = [this] { return !events_.empty() || isFinished_ || (isInterrupted_ && !isInterruptionTold_); };
  if (deadline) {
    changed_.wait_until(lock, *deadline, isWoken);
  } else {
    changed_.wait(lock, isWoken);
  }
  if (isInterrupted_ && !std::exchange(isInterruptionTold_, true)) return std::nullopt;
  return takeFirst();
}

bool EventQueue::isInterrupted() const {
  const std::scoped_lock lock(mutex_);
  return isInterrupted_;
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
