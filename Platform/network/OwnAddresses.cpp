#include "Platform/network/OwnAddresses.h"

#include <algorithm>
#include <system_error>

#include "Platform/network/InterfaceChanges.h"

namespace vesko {

OwnAddresses::OwnAddresses() {
  std::error_code untold;
  auto changes = std::make_unique<InterfaceChanges>(untold);
  if (!untold) changes_ = std::move(changes);
}

OwnAddresses::~OwnAddresses() = default;

std::vector<InterfaceAddress> OwnAddresses::list() {
  const std::scoped_lock lock(mutex_);
  ask();
  return known_;
}

/// Asked for every datagram, so the system is asked again only when it has reported a change. Where changes cannot be
/// watched, or no address is known yet, it is asked each time.
bool OwnAddresses::has(const std::string& address) {
  const std::scoped_lock lock(mutex_);
  if (!changes_ || changes_->take() || known_.empty()) ask();
  return std::ranges::any_of(known_, [&](const InterfaceAddress& one) { return one.address == address; });
}

void OwnAddresses::ask() {
  known_ = NetworkInterfaces::all();
  std::erase_if(known_, [](const InterfaceAddress& one) { return !one.isUsable(); });
}

}  // namespace vesko
