#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "hosts/common/events/Events.h"
#include "hosts/common/session/SessionState.h"

namespace vesko {

/// Distributes the events of a session: to the host's sink, to the state of the session, and to subscribers such as the
/// clients of the control channel. Any thread.
///
/// One lock covers the state and all deliveries. A subscriber therefore gets the state and every event after it,
/// without a gap or a duplicate. The price is that a sink must return quickly and must call neither the hub nor the
/// session.
class EventHub final : public EventSink {
 public:
  /// `sink` gets every event; the hub keeps it.
  explicit EventHub(std::shared_ptr<EventSink> sink) : sink_(std::move(sink)) {}

  void publish(Event event) override;
  [[nodiscard]] bool isOverwhelmed() const override { return sink_->isOverwhelmed(); }

  /// `hold` keeps back all events from now on. `release` delivers `first`, then the events kept back, then continues as
  /// usual.
  void hold();
  void release(std::vector<Event> first);

  /// Ends all deliveries. None is under way when it returns.
  void close() {
    const std::scoped_lock lock(mutex_);
    isClosed_ = true;
  }

  /// Calls `begin` with the state after all events so far and delivers all later events to `sink`, as long as its owner
  /// keeps it. `begin` must not call the hub or the session.
  template <class Begin>
  void subscribe(std::weak_ptr<EventSink> sink, Begin begin) {
    const std::scoped_lock lock(mutex_);
    begin(std::as_const(state_));
    std::erase_if(subscribers_, [](const auto& weak) { return weak.expired(); });
    subscribers_.push_back(std::move(sink));
  }

  /// Calls `look` with the state after all events so far; no event is delivered meanwhile. `look` must not call the hub
  /// or the session.
  template <class Look>
  void inspect(Look look) const {
    const std::scoped_lock lock(mutex_);
    look(state_);
  }

  /// A copy of the state after all events so far.
  [[nodiscard]] SessionState state() const {
    const std::scoped_lock lock(mutex_);
    return state_;
  }

 private:
  using Subscribers = std::vector<std::shared_ptr<EventSink>>;

  /// Requires: the lock is held. `reached`: the subscribers called; the caller releases them after the lock.
  void handOn(Event event, Subscribers& reached);

  const std::shared_ptr<EventSink> sink_;
  mutable std::mutex mutex_;
  bool isClosed_ = false;
  bool isHolding_ = false;
  std::vector<Event> held_;  // the events kept back
  SessionState state_;
  std::vector<std::weak_ptr<EventSink>> subscribers_;
};

}  // namespace vesko
