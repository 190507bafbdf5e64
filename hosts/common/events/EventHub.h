#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "hosts/common/events/Events.h"
#include "hosts/common/session/SessionState.h"

namespace vesko {

/// Hands the events of a session to all who want them, and keeps what they add up to. Any thread.
class EventHub final : public EventSink {
 public:
  /// Keeps `sink`, which hears everything.
  explicit EventHub(std::shared_ptr<EventSink> sink) : sink_(std::move(sink)) {}

  void publish(Event event) override;
  [[nodiscard]] bool isOverwhelmed() const override { return sink_->isOverwhelmed(); }

  /// Keeps events back from now on, until `release` hands on `first` and then those.
  void hold();
  void release(std::vector<Event> first);

  /// Nothing is handed on from the return on.
  void close() {
    const std::scoped_lock lock(mutex_);
    isClosed_ = true;
  }

  /// Calls `begin` with what the events so far add up to; all later ones go to `sink`, until its owner lets go of it.
  /// Nothing is lost or doubled in between. Neither may call the hub or the session.
  template <class Begin>
  void subscribe(std::weak_ptr<EventSink> sink, Begin begin) {
    const std::scoped_lock lock(mutex_);
    begin(std::as_const(state_));
    std::erase_if(subscribers_, [](const auto& weak) { return weak.expired(); });
    subscribers_.push_back(std::move(sink));
  }

  /// Calls `look` with what the events so far add up to, before any later one is handed on. It may not call the hub or
  /// the session.
  template <class Look>
  void inspect(Look look) const {
    const std::scoped_lock lock(mutex_);
    look(state_);
  }

  [[nodiscard]] SessionState state() const {
    const std::scoped_lock lock(mutex_);
    return state_;
  }

 private:
  using Subscribers = std::vector<std::shared_ptr<EventSink>>;

  /// `reached` is for the caller to let go of after the lock.
  void handOn(Event event, Subscribers& reached);

  const std::shared_ptr<EventSink> sink_;
  mutable std::mutex mutex_;
  bool isClosed_ = false;
  bool isHolding_ = false;
  std::vector<Event> held_;
  SessionState state_;
  std::vector<std::weak_ptr<EventSink>> subscribers_;
};

}  // namespace vesko
