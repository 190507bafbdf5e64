#include "hosts/cli/EventQueue.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace vesko {

namespace {

/// The machine that an event tells of; none for the other kinds.
template <class AnyEvent>
auto* peerIn(AnyEvent& event) noexcept {
  return std::visit(
      [](auto& any) -> decltype(&std::get<PeerUpdatedEvent>(event).peer) {
        if constexpr (requires { any.peer; }) {
          return &any.peer;
        } else {
          return nullptr;
        }
      },
      event);
}

}  // namespace

void EventQueue::publish(Event event) {
  {
    const std::scoped_lock lock(mutex_);
    if (!replacedProgress(event) && !mergedPeer(event)) {
      events_.push_back(std::move(event));
      if (const auto* const peer = peerIn(events_.back())) peers_[peer->key] = std::prev(events_.end());
    }
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
  if (const auto* const peer = peerIn(events_.front())) {
    const auto last = peers_.find(peer->key);
    if (last != peers_.end() && last->second == events_.begin()) peers_.erase(last);
  }
  std::optional<Event> event = std::move(events_.front());
  events_.pop_front();
  return event;
}

bool EventQueue::mergedPeer(const Event& event) {
  const auto* const peer = peerIn(event);
  const auto last = peer != nullptr ? peers_.find(peer->key) : peers_.end();
  if (last == peers_.end() || std::holds_alternative<PeerDisappearedEvent>(*last->second)) return false;
  if (!std::holds_alternative<PeerDisappearedEvent>(event)) {
    *peerIn(*last->second) = *peer;
  } else if (std::holds_alternative<PeerUpdatedEvent>(*last->second)) {
    *last->second = event;
  } else {
    events_.erase(last->second);
    peers_.erase(last);
  }
  return true;
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
