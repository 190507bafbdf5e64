#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace vesko {

class DispatchQueue;
class VeskoIncomingTransfer;

/// What the incoming transfers of one service share: the limited number of places, and the queue on which storage is
/// removed when that would delay the others. On the queue of the transfers only, but for `removalQueue`.
class IncomingTransferRoom : public std::enable_shared_from_this<IncomingTransferRoom> {
 public:
  explicit IncomingTransferRoom(std::shared_ptr<DispatchQueue> removalQueue) : removalQueue_(std::move(removalQueue)) {}

  /// Gives a place to `transfer`, which was just made.
  void admit(const std::shared_ptr<VeskoIncomingTransfer>& transfer);

  /// Makes sure that fewer than `maximum` (at least 1) transfers have a place. If need be, the transfer whose sender
  /// has been silent for longest fails.
  void makePlace(std::size_t maximum);

  /// The next sequence number of useful data. Of two transfers, the one with the smaller number has been silent for
  /// longer.
  [[nodiscard]] std::uint64_t nextActivity() noexcept { return ++activityCounter_; }

  /// Any thread.
  [[nodiscard]] const std::shared_ptr<DispatchQueue>& removalQueue() const noexcept { return removalQueue_; }

 private:
  /// How recently a sender was active; the smallest value has been silent for longest. First: bytes that the transfer
  /// waits for have arrived and are not read yet. Second: the sequence number of its last useful data, which is the
  /// metadata, a size or bytes of a body. A name does not count: a sender could keep its place for hours by sending one
  /// byte of it every few seconds.
  using Activity = std::pair<bool, std::uint64_t>;
  [[nodiscard]] static Activity activityOf(const VeskoIncomingTransfer& transfer);

  const std::shared_ptr<DispatchQueue> removalQueue_;
  std::vector<std::weak_ptr<VeskoIncomingTransfer>> transfers_;  // oldest first
  std::uint64_t activityCounter_ = 0;
};

}  // namespace vesko
