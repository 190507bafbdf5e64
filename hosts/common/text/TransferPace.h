#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "hosts/common/session/SessionState.h"

namespace vesko {

/// How fast a transfer is and, when it stands still, since when: worked out of its progress. A value without a clock.
class TransferPace {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// A shorter standstill is not worth a word: every way has its pauses.
  static constexpr std::chrono::seconds shortest{3};

  /// Takes one progress after the other, with the time at which it came. Each is a movement, its numbers the same or
  /// not: what counts as handed over may not change for long while the other side acknowledges it.
  void note(const ProgressEvent& progress, TimePoint now);

  /// Bytes per second, of the last few of them.
  [[nodiscard]] double rate() const noexcept { return rate_; }

  /// For how long nothing has moved; none when that is shorter than `shortest`. Requires, like those below: some was
  /// noted.
  [[nodiscard]] std::optional<std::chrono::seconds> standstill(TimePoint now) const noexcept;

  [[nodiscard]] TimePoint lastMoved() const noexcept { return *moved_; }

  /// When `standstill` will say something else, unless there is progress before.
  [[nodiscard]] TimePoint nextChange(TimePoint now) const noexcept;

 private:
  std::optional<TimePoint> moved_;
  std::uint64_t bytes_ = 0;
  double rate_ = 0;
};

/// What a transfer waits for: the other side, called `who`, once everything is handed over, or for something to move;
/// empty while it goes on.
[[nodiscard]] std::string waitingText(const TransferView& transfer, const std::string& who,
                                      std::optional<std::chrono::seconds> standstill);

}  // namespace vesko
