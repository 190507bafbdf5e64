#include <utility>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "VeskoKit/IncomingTransferRoom.h"
#include "VeskoKit/Log.h"
#include "VeskoKit/ReceivedItemStorage.h"
#include "VeskoKit/TransferFailure.h"
#include "VeskoKit/TransferLimit.h"
#include "VeskoKit/VeskoIncomingTransfer.h"

namespace vesko {

/// Destroyed before its end, with its service: what it stored is removed without delaying this thread.
VeskoIncomingTransfer::~VeskoIncomingTransfer() {
  if (storage_ && room_ && storage_->takesLongToRemove()) room_->removalQueue()->async(storage_->giveUp());
}

/// State settling: everything has arrived and is moved to its final place.
void VeskoIncomingTransfer::finish() {
  Log::line("Finished transfer");
  std::error_code error;
  const std::optional<std::string> path = storage_->settle(error);
  if (error) {
    fail(TransferFailure::reasonOfStorage(error), "moving what arrived to its place", error);
    return;
  }
  // Only now: the sender takes the orderly close for the confirmation that everything is in its final place.
  socket_->disconnect();
  socket_.reset();
  if (path && delegate_) delegate_->incomingTransferDidSaveItems(*this, *path);
  if (delegate_) delegate_->incomingTransferDidFinish(*this);
  end({});
}

/// The connection ended before the stream did. The close at the end of a transfer is no failure: `isOver_` is set then.
void VeskoIncomingTransfer::socketDidDisconnect(GCDAsyncSocket& /*socket*/, const SocketError& error) {
  if (isOver_) return;
  const auto failure = TransferFailure::fromSocket(error, {});
  fail(failure.reason, failure.operation, failure.error);
}

void VeskoIncomingTransfer::cancel() {
  queue_->async([self = shared_from_this()] { self->fail(VeskoFailureReason::cancelled, {}); });
}

void VeskoIncomingTransfer::failAtLimit(TransferLimit limit) { fail(VeskoFailureReason::limit, {}, limit); }

/// From any state to ended. The connection is reset first, so that the sender learns of the failure. What was stored is
/// removed before the outcome is told; where that takes long, on the queue "removal", and the outcome comes back to
/// this queue.
void VeskoIncomingTransfer::fail(VeskoFailureReason reason, std::string operation, std::error_code error) {
  if (isOver_) return;
  auto outcome = reason == VeskoFailureReason::cancelled
                     ? TransferFailure::cancelled()
                     : TransferFailure::make(reason, std::move(operation), error, buffer_ ? "" : currentName());
  if (socket_) socket_->disconnectWithReset();
  const bool isHalfWay = std::exchange(currentFile_, nullptr) != nullptr;
  // An incomplete file must not look like a complete one: if it cannot be removed, nothing is kept.
  if (settings_.keepPartial && (!isHalfWay || storage_->discardLastFile())) {
    std::error_code unsettled;
    outcome.keptPath = storage_->settle(unsettled).value_or("");
  }
  letGo();
  if (!room_ || !storage_->takesLongToRemove()) {
    storage_->remove();
    end(std::move(outcome));
    return;
  }
  room_->removalQueue()->async(
      [self = shared_from_this(), remove = storage_->giveUp(), outcome = std::move(outcome)]() mutable {
        remove();
        const auto queue = self->queue_;
        queue->async([self = std::move(self), outcome = std::move(outcome)] { self->end(outcome); });
      });
}

/// From here on nothing is received, and only the storage holds descriptors. The outcome may be yet to come.
void VeskoIncomingTransfer::letGo() {
  isOver_ = true;
  socket_.reset();
  droppedBody_.reset();
  buffer_.reset();
}

void VeskoIncomingTransfer::end(VeskoTransferOutcome outcome) {
  letGo();
  ended_ = true;
  storage_.reset();
  outcome.dropped = std::move(dropped_);
  outcome.droppedCount = droppedCount_;
  if (settings_.outcomeDelegate) settings_.outcomeDelegate->incomingTransferDidEnd(*this, outcome);
}

}  // namespace vesko
