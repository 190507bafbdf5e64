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

/// Hands the events of a session to the program's main thread, so that no transfer waits for a terminal.
///
/// Of progress not yet taken only the newest of each transfer is kept; and once `farBehind` events wait, so it is with
/// what machines say: anybody can send that faster than any program tells of it. Any thread.
class EventQueue : public EventSink {
 public:
  /// So many events wait only where they come faster than they are told.
  static constexpr std::size_t farBehind = 1000;

  /// Of what transfers tell nothing may be lost, so there are no new ones while this much waits: the second limit is
  /// two of the longest texts, bytes.
  static constexpr std::size_t maximumWaiting = 100'000;
  static constexpr std::size_t maximumText = 2 * VeskoText::maximumLength;

  /// Takes every event or, with `isWanted`, those that it is true of: nobody is woken for others. It is called on any
  /// thread.
  explicit EventQueue(std::function<bool(const Event&)> isWanted = {}) : isWanted_(std::move(isWanted)) {}

  void publish(Event event) override;
  [[nodiscard]] bool isOverwhelmed() const override;

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
  std::size_t textBytes_ = 0;  // of the texts among them
  std::map<TransferId, Waiting::iterator> lastOfTransfers_;
  std::map<std::string, Waiting::iterator> lastOfPeers_;
  bool isInterrupted_ = false;
  bool isInterruptionTold_ = false;
  bool isFinished_ = false;
};

}  // namespace vesko
