#include "hosts/common/text/TransferPace.h"

#include <algorithm>
#include <cmath>

#include "hosts/common/text/HumanText.h"

namespace vesko {
namespace {

std::string secondsText(std::chrono::seconds time) {
  const auto count = time.count();
  return count < 60 ? std::to_string(count) + " s" : clockText(static_cast<double>(count));
}

/// All data is with the system; only the confirmation of the receiver is missing.
bool isHandedOver(const TransferView& transfer) {
  return transfer.direction == TransferDirection::out && transfer.progress &&
         transfer.progress->finishedElements == transfer.progress->elementCount;
}

}  // namespace

void TransferPace::note(const ProgressEvent& progress, TimePoint now) {
  // Seconds: long enough for a steady number, short enough to show a change of the network.
  constexpr double memory = 3;
  if (!moved_ || standstill(now)) {
    rate_ = 0;  // the rate before a stall says nothing about the one after it
  } else {
    const double seconds = std::max(std::chrono::duration<double>(now - *moved_).count(), 1e-3);
    const double rate = static_cast<double>(progress.finishedBytes - bytes_) / seconds;
    const double weight = rate_ == 0 ? 1 : 1 - std::exp(-seconds / memory);
    rate_ += weight * (rate - rate_);
  }
  moved_ = now;
  bytes_ = progress.finishedBytes;
}

std::optional<std::chrono::seconds> TransferPace::standstill(TimePoint now) const noexcept {
  const auto time = std::chrono::floor<std::chrono::seconds>(now - *moved_);
  return time < shortest ? std::nullopt : std::optional(time);
}

TransferPace::TimePoint TransferPace::nextChange(TimePoint now) const noexcept {
  const auto time = standstill(now);
  return *moved_ + (time ? *time + std::chrono::seconds(1) : shortest);
}

std::string waitingText(const TransferView& transfer, const std::string& who,
                        std::optional<std::chrono::seconds> standstill) {
  if (isHandedOver(transfer)) {
    return "waiting for " + who + " to confirm" + (standstill ? ", " + secondsText(*standstill) : "");
  }
  return standstill ? "nothing has moved for " + secondsText(*standstill) : "";
}

}  // namespace vesko
