#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace vesko {

class DispatchQueue;
class VeskoIncomingTransfer;

/// What the incoming transfers of one service share: their places, and the queue where storage is removed that would
/// keep the others waiting. On the queue of the transfers only, but for `removalQueue`.
class IncomingTransferRoom : public std::enable_shared_from_this<IncomingTransferRoom> {
 public:
  explicit IncomingTransferRoom(std::shared_ptr<DispatchQueue> removalQueue) : removalQueue_(std::move(removalQueue)) {}

  /// Gives `transfer`, which has just been made, a place.
  void admit(const std::shared_ptr<VeskoIncomingTransfer>& transfer);

  /// Makes sure that fewer than `maximum` (at least 1) have a place: the transfer whose sender has sent nothing that
  /// counts for the longest time gives way.
  void makePlace(std::size_t maximum);

  /// A number above all that were given before: it dates an activity among those of the other transfers.
  [[nodiscard]] std::uint64_t nextActivity() noexcept { return ++activityCounter_; }

  /// Any thread.
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& removalQueue() const noexcept { return removalQueue_; }

 private:
  /// Whether bytes that it waits for have arrived and are yet to be read, and when something that counts was received
  /// last: the metadata, a header or bytes of a body.
  using Activity = std::pair<bool, std::uint64_t>;
  [[nodiscard]] static Activity activityOf(const VeskoIncomingTransfer& transfer);

  const std::shared_ptr<DispatchQueue> removalQueue_;
  std::vector<std::weak_ptr<VeskoIncomingTransfer>> transfers_;  // oldest first
  std::uint64_t activityCounter_ = 0;
};

}  // namespace vesko
