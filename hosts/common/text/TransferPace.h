#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "hosts/common/session/SessionState.h"

namespace vesko {

/// Rate of a transfer, and for how long it has stalled, computed from its progress. A plain value without a clock; use
/// it on one thread.
class TransferPace {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// Shortest stall that is reported; shorter pauses are normal.
  static constexpr std::chrono::seconds shortest{3};

  /// Takes the next progress and the time it came. Every report counts as activity, even with unchanged numbers: the
  /// bytes may all be sent while the other side still acknowledges them.
  void note(const ProgressEvent& progress, TimePoint now);

  /// Bytes per second, averaged over about the last 3 seconds.
  [[nodiscard]] double rate() const noexcept { return rate_; }

  /// Time since the last progress; none below `shortest`. Requires, like the two below: `note` was called.
  [[nodiscard]] std::optional<std::chrono::seconds> standstill(TimePoint now) const noexcept;

  /// The time of the last progress.
  [[nodiscard]] TimePoint lastMoved() const noexcept { return *moved_; }

  /// The time at which the result of `standstill` changes next, without further progress.
  [[nodiscard]] TimePoint nextChange(TimePoint now) const noexcept;

 private:
  std::optional<TimePoint> moved_;
  std::uint64_t bytes_ = 0;
  double rate_ = 0;
};

/// What a transfer waits for: the confirmation of the other side, `who`, once everything is sent, or data. Empty while
/// data flows.
[[nodiscard]] std::string waitingText(const TransferView& transfer, const std::string& who,
                                      std::optional<std::chrono::seconds> standstill);

}  // namespace vesko
