#include "VeskoKit/IncomingTransferRoom.h"

#include "Platform/sockets/GCDAsyncSocket.h"
#include "VeskoKit/TransferLimit.h"
#include "VeskoKit/VeskoIncomingTransfer.h"

namespace vesko {

void IncomingTransferRoom::admit(const std::shared_ptr<VeskoIncomingTransfer>& transfer) {
  transfer->room_ = shared_from_this();
  transfers_.push_back(transfer);
}

void IncomingTransferRoom::makePlace(std::size_t maximum) {
  if (transfers_.size() < maximum) return;
  std::shared_ptr<VeskoIncomingTransfer> idlest;
  Activity activityOfIdlest;
  std::erase_if(transfers_, [&](const auto& listed) {
    const auto transfer = listed.lock();
    // A transfer whose storage is being removed has no connection and no descriptors any more.
    if (!transfer || !transfer->socket()) return true;
    // Compares what is at hand first: whether bytes are unread takes a system call.
    if (idlest && !activityOfIdlest.first && transfer->lastActivity_ >= activityOfIdlest.second) return false;
    const Activity activity = activityOf(*transfer);
    if (!idlest || activity < activityOfIdlest) {
      idlest = transfer;
      activityOfIdlest = activity;
    }
    return false;
  });
  if (idlest && transfers_.size() >= maximum) idlest->failAtLimit(TransferLimit::connections);
}

/// When many connections come at once, all are accepted before the first is read. Their bytes wait meanwhile, which
/// must not count as silence. During the guard's decision bytes wait as well, but nobody reads them, so they do not
/// count as activity.
IncomingTransferRoom::Activity IncomingTransferRoom::activityOf(const VeskoIncomingTransfer& transfer) {
  const bool isReading = transfer.decision_ != VeskoIncomingTransfer::Decision::awaited;
  return {isReading && transfer.socket_->hasUnread(), transfer.lastActivity_};
}

}  // namespace vesko
