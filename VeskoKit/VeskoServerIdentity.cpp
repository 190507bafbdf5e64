#include "Platform/network/OwnAddresses.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/user/Identity.h"
#include "VeskoKit/NetInfo.h"
#include "VeskoKit/NetworkTools.h"
#include "VeskoKit/VeskoServer.h"

namespace vesko {
namespace {

/// An answer may carry a signature of this age. Finding it out takes reading files, and many peers may ask at once.
constexpr std::chrono::seconds signatureLifetime{1};

}  // namespace

std::string VeskoServer::getSystemSignature() {
  // Every program of this protocol ends its signature like this, whatever it runs on. It is no statement about the
  // system.
  return Identity::fullUserName() + " at " + NetworkTools::getSCComputerName() + " [Vesko] (Macintosh)";
}

std::string VeskoServer::recentSignature(bool mustBeNew) {
  const auto now = broadcastQueue_->clock()->monotonicNow();
  if (!mustBeNew) {
    const std::scoped_lock lock(mutex_);
    if (signature_ && now - signature_->asked < signatureLifetime) return signature_->text;
  }
  std::string text = getSystemSignature();
  const std::scoped_lock lock(mutex_);
  signature_ = {text, now};
  return text;
}

bool VeskoServer::isLocalPeer(const std::string& sender) { return ownAddresses_->has(sender); }

std::vector<std::string> VeskoServer::findBroadcastAddress() {
  std::vector<std::string> addresses;
  for (const auto& own : ownAddresses_->list()) {
    addresses.push_back(NetInfo(own.address, own.netmask).broadcast());
  }
  return addresses;
}

}  // namespace vesko
