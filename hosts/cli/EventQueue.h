#pragma once

#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "hosts/common/Events.h"

namespace vesko {

/// Hands the events of a session to the program's main thread, so that no transfer waits for a terminal. Of what was
/// not yet taken only the newest progress of each transfer is kept, and of each machine that it left and how it is now:
/// what the network says must not pile up behind who does not read. Any thread.
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
  [[nodiscard]] bool mergedPeer(const Event& event);

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::list<Event> events_;

  /// The last of them that tells of each machine, by its key.
  std::unordered_map<std::string, std::list<Event>::iterator> peers_;
  bool isInterrupted_ = false;
  bool isInterruptionTold_ = false;
  bool isFinished_ = false;
};

}  // namespace vesko
