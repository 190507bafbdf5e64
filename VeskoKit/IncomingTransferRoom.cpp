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
    // One whose storage is being removed holds no connection, and no descriptor, any more.
    if (!transfer || !transfer->socket()) return true;
    // Nothing beats one that is silent but one that has been so for longer: of the others the system need not be asked.
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

/// Connections that come all at once are accepted before anybody reads: what waits meanwhile is no silence. While
/// the guard decides, nothing is waited for.
IncomingTransferRoom::Activity IncomingTransferRoom::activityOf(const VeskoIncomingTransfer& transfer) {
  const bool isReading = transfer.decision_ != VeskoIncomingTransfer::Decision::awaited;
  return {isReading && transfer.socket_->hasUnread(), transfer.lastActivity_};
}

}  // namespace vesko
