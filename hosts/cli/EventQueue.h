#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

#include "hosts/common/Events.h"

namespace vesko {

/// Hands the events of a session to the program's main thread, so that no transfer waits for a terminal. Of progress
/// not yet taken only the newest of each transfer is kept. Any thread.
class EventQueue : public EventSink {
 public:
  void publish(Event event) override;

  /// Notes that the user wants an end, and wakes whoever waits.
  void interrupt();

  /// Notes that whatever publishes has come to an end, and wakes whoever waits.
  void finish();

  /// The oldest event, waited for; none, and at once, when the user wants an end that nobody has been told of yet.
  [[nodiscard]] std::optional<Event> next() { return next(std::nullopt); }

  /// The same, waited for until `deadline` at most; none also when there is none left after `finish`.
  [[nodiscard]] std::optional<Event> next(std::optional<std::chrono::steady_clock::time_point> deadline);

  [[nodiscard]] bool isInterrupted() const;

  /// The oldest event; none when there is none.
  [[nodiscard]] std::optional<Event> nextWaiting();

 private:
  [[nodiscard]] std::optional<Event> takeFirst();
  [[nodiscard]] bool replacedProgress(Event& event);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Event> events_;
  bool isInterrupted_ = false;
  bool isInterruptionTold_ = false;
  bool isFinished_ = false;
};

}  // namespace vesko
