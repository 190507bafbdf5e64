#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "VeskoKit/VeskoItem.h"
#include "hosts/common/events/Events.h"

namespace vesko {

/// Passes the events of a session to the main thread of the program.
///
/// All events pass one queue for two reasons. `publish` never blocks, so no transfer waits for a slow terminal or pipe.
/// And the main thread sees one order, so reporters and states need no locks.
///
/// Only the newest progress of each transfer is kept. Once `farBehind` events wait, only the newest event of each peer
/// is kept: any machine can send hellos faster than a program prints them. Any thread.
///
///     while (const auto event = events.next()) report(*event);   // ends after `interrupt`
///     while (const auto event = events.nextWaiting()) report(*event);
class EventQueue : public EventSink {
 public:
  /// Waiting events from which on peer events are merged. A program that keeps up never has so many.
  static constexpr std::size_t farBehind = 1000;

  /// Events of transfers are never dropped. Instead no new transfer is accepted (`isOverwhelmed`) while this many
  /// events, or texts of this many bytes (two of the longest ones), wait.
  static constexpr std::size_t maximumWaiting = 100'000;
  static constexpr std::size_t maximumText = 2 * VeskoText::maximumLength;

  /// Takes all events or, with `isWanted`, only those for which it returns true; the others wake nobody. `isWanted` is
  /// called on any thread.
  explicit EventQueue(std::function<bool(const Event&)> isWanted = {}) : isWanted_(std::move(isWanted)) {}

  void publish(Event event) override;
  [[nodiscard]] bool isOverwhelmed() const override;

  /// The user wants to stop: wakes the waiting thread.
  void interrupt();

  /// No more events will be published: wakes the waiting thread.
  void finish();

  /// Waits for the oldest event. After `interrupt` one call returns none at once; later calls wait for events again, so
  /// that the caller can follow cancelled transfers to their ends.
  [[nodiscard]] std::optional<Event> next() { return next(std::nullopt); }

  /// The same, but waits no longer than `deadline`. None also when the queue is empty after `finish`.
  [[nodiscard]] std::optional<Event> next(std::optional<std::chrono::steady_clock::time_point> deadline);

  /// True after `interrupt`.
  [[nodiscard]] bool isInterrupted() const;

  /// The oldest event; none when no event waits. Never blocks.
  [[nodiscard]] std::optional<Event> nextWaiting();

 private:
  using Waiting = std::list<Event>;

  [[nodiscard]] std::optional<Event> takeFirst();
  void append(Event event);
  [[nodiscard]] bool replacedProgress(Event& event);
  [[nodiscard]] bool mergedIntoPeer(Event& event);
  void forget(Waiting::iterator position);

  const std::function<bool(const Event&)> isWanted_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  Waiting events_;
  std::size_t textBytes_ = 0;                                // of the texts in `events_`
  std::map<TransferId, Waiting::iterator> lastOfTransfers_;  // the newest waiting event of each
  std::map<std::string, Waiting::iterator> lastOfPeers_;     // likewise, by key
  bool isInterrupted_ = false;
  bool isInterruptionTold_ = false;  // `next` has returned none for it
  bool isFinished_ = false;
};

}  // namespace vesko
