#include "hosts/common/events/EventQueue.h"

#include <utility>

namespace vesko {
namespace {

/// The machine an event is about; none for events of transfers and of the service.
const PeerView* peerIn(const Event& event) noexcept {
  return std::visit(
      [](const auto& any) -> const PeerView* {
        if constexpr (requires { any.peer; }) {
          return &any.peer;
        } else {
          return nullptr;
        }
      },
      event);
}

std::size_t textLengthOf(const Event& event) noexcept {
  const auto* const received = std::get_if<TextReceivedEvent>(&event);
  return received == nullptr ? 0 : received->text.size();
}

}  // namespace

void EventQueue::publish(Event event) {
  if (isWanted_ && !isWanted_(event)) return;
  {
    const std::scoped_lock lock(mutex_);
    if (!replacedProgress(event) && !mergedIntoPeer(event)) append(std::move(event));
  }
  changed_.notify_one();
}

bool EventQueue::isOverwhelmed() const {
  const std::scoped_lock lock(mutex_);
  return events_.size() >= maximumWaiting || textBytes_ >= maximumText;
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
  forget(events_.begin());
  textBytes_ -= textLengthOf(events_.front());
  std::optional<Event> event = std::move(events_.front());
  events_.pop_front();
  return event;
}

void EventQueue::append(Event event) {
  textBytes_ += textLengthOf(event);
  const auto position = events_.insert(events_.end(), std::move(event));
  if (const auto transfer = transferOf(*position)) {
    lastOfTransfers_[*transfer] = position;
  } else if (const auto* peer = peerIn(*position)) {
    lastOfPeers_[peer->key] = position;
  }
}

bool EventQueue::replacedProgress(Event& event) {
  if (!std::holds_alternative<ProgressEvent>(event)) return false;
  // Only if it is the newest event of its transfer: no event may overtake another one of the same transfer.
  const auto last = lastOfTransfers_.find(*transferOf(event));
  if (last == lastOfTransfers_.end() || !std::holds_alternative<ProgressEvent>(*last->second)) return false;
  *last->second = std::move(event);
  return true;
}

bool EventQueue::mergedIntoPeer(Event& event) {
  const auto* const peer = peerIn(event);
  if (peer == nullptr || events_.size() < farBehind) return false;
  const auto found = lastOfPeers_.find(peer->key);
  if (found == lastOfPeers_.end() || std::holds_alternative<PeerDisappearedEvent>(*found->second)) return false;
  // What the reader gets in the end must be consistent: "appeared" stays "appeared" with the newest data, "appeared"
  // and "disappeared" cancel each other, and nothing is merged into "disappeared".
  const auto last = found->second;
  auto* const appeared = std::get_if<PeerAppearedEvent>(&*last);
  if (appeared == nullptr) {
    *last = std::move(event);
  } else if (std::holds_alternative<PeerDisappearedEvent>(event)) {
    forget(last);
    events_.erase(last);
  } else {
    appeared->peer = *peer;
  }
  return true;
}

void EventQueue::forget(Waiting::iterator position) {
  const auto drop = [position](auto& lasts, const auto& key) {
    const auto found = lasts.find(key);
    if (found != lasts.end() && found->second == position) lasts.erase(found);
  };
  if (const auto transfer = transferOf(*position)) {
    drop(lastOfTransfers_, *transfer);
  } else if (const auto* peer = peerIn(*position)) {
    drop(lastOfPeers_, peer->key);
  }
}

}  // namespace vesko
